#pragma once

#include <cms/CMSException.h>
#include <cms/Config.h>
#include <cms/DeliveryMode.h>
#include <cms/Destination.h>

#include <string>
#include <vector>

namespace cms {

/// Headers and properties that every message has. Texts are the bytes of the wire: modified UTF-8.
///
/// A property is read back as it was set, as a wider number or as text; MessageFormatException when
/// it has no such reading, CMSException when there is none of that name. Setting headers or
/// properties of a received message is allowed; only its text cannot be replaced.
class CMS_API Message {
public:
    virtual ~Message() = default;

    /// A copy owned by the caller.
    virtual Message *clone() const = 0;

    /// Without effect: sessions acknowledge by themselves.
    virtual void acknowledge() const = 0;

    virtual void clearBody() = 0;
    virtual void clearProperties() = 0;
    virtual std::vector<std::string> getPropertyNames() const = 0;
    virtual bool propertyExists(const std::string &name) const = 0;

    virtual bool getBooleanProperty(const std::string &name) const = 0;
    virtual unsigned char getByteProperty(const std::string &name) const = 0;
    virtual double getDoubleProperty(const std::string &name) const = 0;
    virtual float getFloatProperty(const std::string &name) const = 0;
    virtual int getIntProperty(const std::string &name) const = 0;
    virtual long long getLongProperty(const std::string &name) const = 0;
    virtual short getShortProperty(const std::string &name) const = 0;
    virtual std::string getStringProperty(const std::string &name) const = 0;

    virtual void setBooleanProperty(const std::string &name, bool value) = 0;
    virtual void setByteProperty(const std::string &name, unsigned char value) = 0;
    virtual void setDoubleProperty(const std::string &name, double value) = 0;
    virtual void setFloatProperty(const std::string &name, float value) = 0;
    virtual void setIntProperty(const std::string &name, int value) = 0;
    virtual void setLongProperty(const std::string &name, long long value) = 0;
    virtual void setShortProperty(const std::string &name, short value) = 0;
    virtual void setStringProperty(const std::string &name, const std::string &value) = 0;

    virtual std::string getCMSCorrelationID() const = 0;
    virtual void setCMSCorrelationID(const std::string &correlationId) = 0;

    /// A DeliveryMode::DELIVERY_MODE. Sending sets it to what the producer used.
    virtual int getCMSDeliveryMode() const = 0;
    virtual void setCMSDeliveryMode(int mode) = 0;

    /// Owned by the message; null before the first send.
    virtual const Destination *getCMSDestination() const = 0;
    virtual void setCMSDestination(const Destination *destination) = 0;

    /// Milliseconds since 1970; 0 for a message that does not expire.
    virtual long long getCMSExpiration() const = 0;
    virtual void setCMSExpiration(long long expireTime) = 0;

    /// Given by send; empty before.
    virtual std::string getCMSMessageID() const = 0;
    virtual void setCMSMessageID(const std::string &id) = 0;

    /// 0 to 9, 9 the most urgent.
    virtual int getCMSPriority() const = 0;
    virtual void setCMSPriority(int priority) = 0;

    virtual bool getCMSRedelivered() const = 0;
    virtual void setCMSRedelivered(bool redelivered) = 0;

    /// Owned by the message; null when none was given.
    virtual const Destination *getCMSReplyTo() const = 0;
    virtual void setCMSReplyTo(const Destination *destination) = 0;

    /// Milliseconds since 1970, given by send.
    virtual long long getCMSTimestamp() const = 0;
    virtual void setCMSTimestamp(long long timeStamp) = 0;

    virtual std::string getCMSType() const = 0;
    virtual void setCMSType(const std::string &type) = 0;
};

} // namespace cms
