#pragma once

#include <cms/AsyncCallback.h>
#include <cms/Closeable.h>
#include <cms/DeliveryMode.h>
#include <cms/Destination.h>
#include <cms/Message.h>

namespace cms {

/// Sends messages. Safe to call from several threads; messages of one thread keep their order.
class CMS_API MessageProducer : public Closeable {
public:
    /// Sends a message, which stays the caller's and may be used again; id, time, priority,
    /// delivery mode, expiry and destination are written into it.
    ///
    /// Persistent: waits for the broker's answer, up to 15 s. Non-persistent: returns as soon as
    /// the message is on its way. With a callback: does not wait in either mode and reports the
    /// broker's answer through it; when send itself throws, the callback is not called.
    ///
    /// CMSException when the connection is lost, the broker refused the message, or the frame is
    /// larger than the broker takes (nothing is sent then, and the connection stays usable).
    /// timeToLive is in milliseconds, 0 for ever. The forms with a destination are for a producer
    /// without one; UnsupportedOperationException or InvalidDestinationException otherwise.
    virtual void send(Message *message) = 0;
    virtual void send(Message *message, AsyncCallback *onComplete) = 0;
    virtual void send(Message *message, int deliveryMode, int priority, long long timeToLive) = 0;
    virtual void send(Message *message, int deliveryMode, int priority, long long timeToLive,
        AsyncCallback *onComplete)
        = 0;
    virtual void send(const Destination *destination, Message *message) = 0;
    virtual void send(const Destination *destination, Message *message, AsyncCallback *onComplete)
        = 0;
    virtual void send(const Destination *destination, Message *message, int deliveryMode,
        int priority, long long timeToLive)
        = 0;
    virtual void send(const Destination *destination, Message *message, int deliveryMode,
        int priority, long long timeToLive, AsyncCallback *onComplete)
        = 0;

    /// Defaults for the forms that do not say: PERSISTENT, priority 4, no expiry.
    virtual void setDeliveryMode(int mode) = 0;
    virtual int getDeliveryMode() const = 0;
    virtual void setPriority(int priority) = 0;
    virtual int getPriority() const = 0;
    virtual void setTimeToLive(long long time) = 0;
    virtual long long getTimeToLive() const = 0;

    /// A hint: an id is sent all the same, the broker needs it.
    virtual void setDisableMessageID(bool value) = 0;
    virtual bool getDisableMessageID() const = 0;
    virtual void setDisableMessageTimeStamp(bool value) = 0;
    virtual bool getDisableMessageTimeStamp() const = 0;
};

} // namespace cms
