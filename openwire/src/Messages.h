#pragma once

#include "MessageData.h"
#include "Values.h"

#include <cms/BytesMessage.h>
#include <cms/MapMessage.h>
#include <cms/Message.h>
#include <cms/ObjectMessage.h>
#include <cms/StreamMessage.h>
#include <cms/TextMessage.h>

#include <memory>

namespace kvx::openwire {

/// Headers and properties on top of what travels. Const calls are safe from several threads.
class PlainMessage : public virtual cms::Message {
public:
    explicit PlainMessage(MessageData data, bool received = false);
    PlainMessage(const PlainMessage &other);

    const MessageData &data() const { return m_data; }
    /// Writes into the message what a send decided.
    void setSent(const MessageId &id, const DestinationName &destination, bool persistent,
        int priority, std::int64_t timestamp, std::int64_t expiration);

    Message *clone() const override;
    void acknowledge() const override { }
    void clearBody() override;
    void clearProperties() override;
    std::vector<std::string> getPropertyNames() const override;
    bool propertyExists(const std::string &name) const override;

    bool getBooleanProperty(const std::string &name) const override;
    unsigned char getByteProperty(const std::string &name) const override;
    double getDoubleProperty(const std::string &name) const override;
    float getFloatProperty(const std::string &name) const override;
    int getIntProperty(const std::string &name) const override;
    long long getLongProperty(const std::string &name) const override;
    short getShortProperty(const std::string &name) const override;
    std::string getStringProperty(const std::string &name) const override;
    void setBooleanProperty(const std::string &name, bool value) override;
    void setByteProperty(const std::string &name, unsigned char value) override;
    void setDoubleProperty(const std::string &name, double value) override;
    void setFloatProperty(const std::string &name, float value) override;
    void setIntProperty(const std::string &name, int value) override;
    void setLongProperty(const std::string &name, long long value) override;
    void setShortProperty(const std::string &name, short value) override;
    void setStringProperty(const std::string &name, const std::string &value) override;

    std::string getCMSCorrelationID() const override { return m_data.correlationId; }
    void setCMSCorrelationID(const std::string &id) override { m_data.correlationId = id; }
    int getCMSDeliveryMode() const override;
    void setCMSDeliveryMode(int mode) override;
    const cms::Destination *getCMSDestination() const override { return m_destination.get(); }
    void setCMSDestination(const cms::Destination *destination) override;
    long long getCMSExpiration() const override { return m_data.expiration; }
    void setCMSExpiration(long long expireTime) override { m_data.expiration = expireTime; }
    std::string getCMSMessageID() const override { return m_messageId; }
    void setCMSMessageID(const std::string &id) override { m_messageId = id; }
    int getCMSPriority() const override { return m_data.priority; }
    void setCMSPriority(int priority) override;
    bool getCMSRedelivered() const override { return m_data.redeliveryCounter > 0; }
    void setCMSRedelivered(bool redelivered) override { m_data.redeliveryCounter = redelivered; }
    const cms::Destination *getCMSReplyTo() const override { return m_replyTo.get(); }
    void setCMSReplyTo(const cms::Destination *destination) override;
    long long getCMSTimestamp() const override { return m_data.timestamp; }
    void setCMSTimestamp(long long timeStamp) override { m_data.timestamp = timeStamp; }
    std::string getCMSType() const override { return m_data.jmsType; }
    void setCMSType(const std::string &type) override { m_data.jmsType = type; }

protected:
    MessageData m_data;
    bool m_readOnly;

private:
    Value property(const std::string &name) const;
    void setProperty(const std::string &name, Value value);

    std::string m_messageId;
    std::unique_ptr<cms::Destination> m_destination;
    std::unique_ptr<cms::Destination> m_replyTo;
};

class PlainTextMessage : public PlainMessage, public cms::TextMessage {
public:
    using PlainMessage::PlainMessage;
    cms::Message *clone() const override;
    std::string getText() const override;
    void setText(const char *msg) override;
    void setText(const std::string &msg) override;
};

class PlainBytesMessage : public PlainMessage, public cms::BytesMessage {
public:
    using PlainMessage::PlainMessage;
    cms::Message *clone() const override;
    int getBodyLength() const override;
    unsigned char *getBodyBytes() const override;

private:
    std::string body() const;
};

class PlainMapMessage : public PlainMessage, public cms::MapMessage {
public:
    using PlainMessage::PlainMessage;
    cms::Message *clone() const override;
};

class PlainStreamMessage : public PlainMessage, public cms::StreamMessage {
public:
    using PlainMessage::PlainMessage;
    cms::Message *clone() const override;
};

class PlainObjectMessage : public PlainMessage, public cms::ObjectMessage {
public:
    using PlainMessage::PlainMessage;
    cms::Message *clone() const override;
};

/// The message object for what was received, by its type.
std::unique_ptr<PlainMessage> makeReceived(MessageData data);

} // namespace kvx::openwire
