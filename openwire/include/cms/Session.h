#pragma once

#include <cms/BytesMessage.h>
#include <cms/CMSException.h>
#include <cms/Closeable.h>
#include <cms/MapMessage.h>
#include <cms/Message.h>
#include <cms/MessageConsumer.h>
#include <cms/MessageProducer.h>
#include <cms/ObjectMessage.h>
#include <cms/Queue.h>
#include <cms/Startable.h>
#include <cms/Stoppable.h>
#include <cms/StreamMessage.h>
#include <cms/TextMessage.h>
#include <cms/Topic.h>

#include <string>

namespace cms {

/// One line of work on a connection: its consumers are served by one thread, one message at a time.
///
/// Everything a create call returns is deleted by the caller, before or after the session and its
/// connection were closed.
class CMS_API Session : public Closeable, public Startable, public Stoppable {
public:
    /// Only the first two are supported; both acknowledge a message when its listener has returned.
    enum AcknowledgeMode {
        AUTO_ACKNOWLEDGE,
        DUPS_OK_ACKNOWLEDGE,
        CLIENT_ACKNOWLEDGE,
        SESSION_TRANSACTED,
        INDIVIDUAL_ACKNOWLEDGE
    };

    /// Closes consumers and producers too. Returns within two seconds, as MessageConsumer::close().
    virtual void close() = 0;

    /// The destination is copied and may be deleted at once. noLocal leaves out messages that were
    /// sent over the same connection. Waits for the broker's answer, up to 15 s.
    virtual MessageConsumer *createConsumer(const Destination *destination) = 0;
    virtual MessageConsumer *createConsumer(
        const Destination *destination, const std::string &selector)
        = 0;
    virtual MessageConsumer *createConsumer(
        const Destination *destination, const std::string &selector, bool noLocal)
        = 0;

    /// Without destination the producer's send() calls name one.
    virtual MessageProducer *createProducer(const Destination *destination = NULL) = 0;

    virtual Queue *createQueue(const std::string &queueName) = 0;
    virtual Topic *createTopic(const std::string &topicName) = 0;

    virtual Message *createMessage() = 0;
    virtual TextMessage *createTextMessage() = 0;
    virtual TextMessage *createTextMessage(const std::string &text) = 0;

    virtual AcknowledgeMode getAcknowledgeMode() const = 0;
    virtual bool isTransacted() const = 0;
};

} // namespace cms
