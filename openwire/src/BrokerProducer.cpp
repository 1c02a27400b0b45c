#include "Handles.h"

#include "Messages.h"

#include <cms/IllegalStateException.h>
#include <cms/MessageFormatException.h>
#include <cms/UnsupportedOperationException.h>

#include <chrono>

namespace kvx::openwire {

namespace {

std::int64_t millisecondsNow()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

} // namespace

BrokerProducer::BrokerProducer(
    std::shared_ptr<SessionState> session, std::optional<DestinationName> destination)
    : m_session(std::move(session))
    , m_destination(std::move(destination))
    , m_id { m_session->id().connection, m_session->id().value, m_session->nextProducer() }
    , m_deliveryMode(cms::DeliveryMode::PERSISTENT)
{
    m_session->checkOpen();
    Transport &transport = m_session->connection().transport();
    const std::int32_t command = transport.nextCommandId();
    transport.request(command,
        encodeProducerInfo(m_id, m_destination, command, transport.version()),
        m_session->connection().uri().requestLimit);
}

BrokerProducer::~BrokerProducer()
{
    try {
        BrokerProducer::close();
    } catch (...) {
        // A destructor has nobody to tell.
    }
}

void BrokerProducer::close()
{
    if (m_closed.exchange(true))
        return;
    Transport &transport = m_session->connection().transport();
    if (transport.failure())
        return;
    const std::int32_t command = transport.nextCommandId();
    try {
        transport.requestLater(
            command, encodeRemoveProducer(m_id, command, transport.version()), [](const auto &) {},
            true);
    } catch (const cms::CMSException &) {
        // The broker is gone, and with it what was to be removed.
    }
}

const DestinationName &BrokerProducer::ownDestination() const
{
    if (!m_destination)
        throw cms::UnsupportedOperationException("The producer has no destination of its own.");
    return *m_destination;
}

DestinationName BrokerProducer::givenDestination(const cms::Destination *destination) const
{
    DestinationName given = nameOf(destination);
    if (m_destination && (m_destination->kind != given.kind || m_destination->name != given.name))
        throw cms::UnsupportedOperationException(
            "The producer sends to " + m_destination->name + " only.");
    return given;
}

BrokerProducer::Options BrokerProducer::defaults(cms::AsyncCallback *onComplete) const
{
    return { m_deliveryMode == cms::DeliveryMode::PERSISTENT, m_priority, m_timeToLive,
        onComplete };
}

void BrokerProducer::send(cms::Message *message)
{
    send(ownDestination(), message, defaults(nullptr));
}

void BrokerProducer::send(cms::Message *message, cms::AsyncCallback *onComplete)
{
    send(ownDestination(), message, defaults(onComplete));
}

void BrokerProducer::send(
    cms::Message *message, int deliveryMode, int priority, long long timeToLive)
{
    send(message, deliveryMode, priority, timeToLive, nullptr);
}

void BrokerProducer::send(cms::Message *message, int deliveryMode, int priority,
    long long timeToLive, cms::AsyncCallback *onComplete)
{
    const bool persistent = deliveryMode == cms::DeliveryMode::PERSISTENT;
    send(ownDestination(), message, { persistent, priority, timeToLive, onComplete });
}

void BrokerProducer::send(const cms::Destination *destination, cms::Message *message)
{
    send(givenDestination(destination), message, defaults(nullptr));
}

void BrokerProducer::send(
    const cms::Destination *destination, cms::Message *message, cms::AsyncCallback *onComplete)
{
    send(givenDestination(destination), message, defaults(onComplete));
}

void BrokerProducer::send(const cms::Destination *destination, cms::Message *message,
    int deliveryMode, int priority, long long timeToLive)
{
    send(destination, message, deliveryMode, priority, timeToLive, nullptr);
}

void BrokerProducer::send(const cms::Destination *destination, cms::Message *message,
    int deliveryMode, int priority, long long timeToLive, cms::AsyncCallback *onComplete)
{
    const bool persistent = deliveryMode == cms::DeliveryMode::PERSISTENT;
    send(givenDestination(destination), message, { persistent, priority, timeToLive, onComplete });
}

void BrokerProducer::send(
    const DestinationName &destination, cms::Message *message, const Options &options)
{
    if (m_closed)
        throw cms::IllegalStateException("The producer has already been closed!");
    m_session->checkOpen();
    auto *plain = dynamic_cast<PlainMessage *>(message);
    if (!plain)
        throw cms::MessageFormatException("No message of this library was given.");

    const MessageId id { {}, m_id, ++m_lastSequence, 0 };
    const std::int64_t now = millisecondsNow();
    const std::int64_t expiration = options.timeToLive > 0 ? now + options.timeToLive : 0;
    plain->setSent(
        id, destination, options.persistent, options.priority, m_disableTime ? 0 : now, expiration);

    ConnectionState &connection = m_session->connection();
    Transport &transport = connection.transport();
    transport.patience().setEndless();
    const std::int32_t command = transport.nextCommandId();
    const bool answered = options.persistent || options.onComplete;
    std::string frame = encodeMessage(plain->data(), command, answered, transport.version());
    if (options.onComplete) {
        transport.requestLater(command, std::move(frame),
            [state = connection.shared_from_this(), callback = options.onComplete](
                const std::exception_ptr &failure) { state->complete(callback, failure); });
    } else if (options.persistent) {
        transport.request(command, std::move(frame), connection.uri().requestLimit);
    } else {
        transport.send(std::move(frame));
    }
}

} // namespace kvx::openwire
