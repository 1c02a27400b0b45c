#include "Commands.h"

#include "FrameWriter.h"

namespace kvx::openwire {

namespace {

constexpr std::uint8_t consumedAcknowledgement = 2;

FrameWriter startCommand(CommandType type, std::int32_t commandId, bool responseRequired)
{
    FrameWriter out(type);
    out.i32(commandId).boolean(responseRequired);
    return out;
}

void writeId(FrameWriter &out, const SessionId &id)
{
    out.boolean(true).u8(SessionIdType).string(id.connection).i64(id.value);
}

void writeId(FrameWriter &out, const ConsumerId &id)
{
    out.boolean(true).u8(ConsumerIdType).string(id.connection).i64(id.session).i64(id.value);
}

void writeId(FrameWriter &out, const ProducerId &id)
{
    // Unlike in a consumer's id the session comes last.
    out.boolean(true).u8(ProducerIdType).string(id.connection).i64(id.value).i64(id.session);
}

void writeId(FrameWriter &out, const std::string &connectionId)
{
    out.boolean(true).u8(ConnectionIdType).string(connectionId);
}

void writeId(FrameWriter &out, const MessageId &id, int version)
{
    out.boolean(true).u8(MessageIdType);
    if (version >= 10)
        out.stringOrNull(id.textView);
    writeId(out, id.producer);
    out.i64(id.producerSequence).i64(id.brokerSequence);
}

void writeDestination(FrameWriter &out, const std::optional<DestinationName> &destination)
{
    if (!destination) {
        out.null();
        return;
    }
    CommandType type = TopicType;
    switch (destination->kind) {
    case cms::Destination::TOPIC:
        break;
    case cms::Destination::QUEUE:
        type = QueueType;
        break;
    case cms::Destination::TEMPORARY_TOPIC:
        type = TemporaryTopicType;
        break;
    case cms::Destination::TEMPORARY_QUEUE:
        type = TemporaryQueueType;
        break;
    }
    out.boolean(true).u8(type).string(destination->name);
}

template <typename Id> std::string encodeRemove(const Id &id, std::int32_t commandId, int version)
{
    FrameWriter out = startCommand(RemoveInfoType, commandId, true);
    writeId(out, id);
    if (version >= 5)
        out.i64(0); // last delivered sequence
    return out.take();
}

} // namespace

std::string encodeConnectionInfo(
    const ConnectionRequest &request, std::int32_t commandId, int version)
{
    FrameWriter out = startCommand(ConnectionInfoType, commandId, true);
    writeId(out, request.connectionId);
    out.string(request.clientId);
    for (const auto &text : { request.password, request.userName }) // the password comes first
        text ? out.string(*text) : out.null();
    out.null().boolean(false).boolean(false); // broker path, master connector, manageable
    if (version >= 2)
        out.boolean(true); // client master
    if (version >= 6)
        out.boolean(false).boolean(false); // fault tolerant, failover reconnect
    if (version >= 8)
        out.null(); // client IP
    return out.take();
}

std::string encodeSessionInfo(const SessionId &id, std::int32_t commandId)
{
    FrameWriter out = startCommand(SessionInfoType, commandId, true);
    writeId(out, id);
    return out.take();
}

std::string encodeConsumerInfo(const ConsumerRequest &request, std::int32_t commandId, int version)
{
    FrameWriter out = startCommand(ConsumerInfoType, commandId, true);
    writeId(out, request.id);
    out.boolean(false); // browser
    writeDestination(out, request.destination);
    out.i32(request.prefetch).i32(0).boolean(true); // pending limit, dispatch asynchronously
    out.stringOrNull(request.selector); // an empty selector is an error to the broker
    if (version >= 10)
        out.null(); // client ID
    out.null(); // subscription name
    out.boolean(request.noLocal).boolean(false).boolean(false); // exclusive, retroactive
    out.u8(0).null().null(); // priority, broker path, additional predicate
    out.boolean(false).boolean(false).boolean(false); // network, optimised, no range acks
    if (version >= 4)
        out.null(); // network consumer path
    return out.take();
}

std::string encodeProducerInfo(const ProducerId &id,
    const std::optional<DestinationName> &destination, std::int32_t commandId, int version)
{
    FrameWriter out = startCommand(ProducerInfoType, commandId, true);
    writeId(out, id);
    writeDestination(out, destination);
    out.null(); // broker path
    if (version >= 2)
        out.boolean(false); // dispatch asynchronously
    if (version >= 3)
        out.i32(0); // window size
    return out.take();
}

std::string encodeRemoveConnection(const std::string &id, std::int32_t commandId, int version)
{
    return encodeRemove(id, commandId, version);
}

std::string encodeRemoveSession(const SessionId &id, std::int32_t commandId, int version)
{
    return encodeRemove(id, commandId, version);
}

std::string encodeRemoveConsumer(const ConsumerId &id, std::int32_t commandId, int version)
{
    return encodeRemove(id, commandId, version);
}

std::string encodeRemoveProducer(const ProducerId &id, std::int32_t commandId, int version)
{
    return encodeRemove(id, commandId, version);
}

std::string encodeMessage(
    const MessageData &message, std::int32_t commandId, bool responseRequired, int version)
{
    FrameWriter out(message.type);
    out.i32(commandId).boolean(responseRequired);
    writeId(out, message.id.producer);
    writeDestination(out, message.destination);
    out.null().null(); // transaction, original destination
    writeId(out, message.id, version);
    out.null().null().i32(0); // original transaction, group, group sequence
    out.stringOrNull(message.correlationId).boolean(message.persistent);
    out.i64(message.expiration).u8(message.priority);
    writeDestination(out, message.replyTo);
    out.i64(message.timestamp).stringOrNull(message.jmsType);
    if (message.content.empty())
        out.null();
    else
        out.byteSequence(message.content);
    if (message.properties.empty())
        out.null();
    else
        out.byteSequence(message.properties);
    out.null().null(); // data structure, target consumer
    out.boolean(message.compressed).i32(0); // redelivery counter
    out.null().i64(0).null().boolean(false); // broker path, arrival, user, network bridge
    if (version >= 2)
        out.boolean(false); // droppable
    if (version >= 3)
        out.null().i64(0).i64(0); // cluster, in and out time
    if (version >= 10)
        out.boolean(false); // first of its group
    return out.take();
}

std::string encodeAcknowledgement(
    const ConsumerId &consumer, const MessageData &message, std::int32_t commandId, int version)
{
    FrameWriter out = startCommand(MessageAckType, commandId, false);
    writeDestination(out, message.destination);
    out.null(); // transaction
    writeId(out, consumer);
    out.u8(consumedAcknowledgement);
    writeId(out, message.id, version);
    writeId(out, message.id, version);
    out.i32(1);
    if (version >= 7)
        out.null(); // poison cause
    return out.take();
}

std::string encodeKeepAlive(std::int32_t commandId)
{
    return startCommand(KeepAliveInfoType, commandId, false).take();
}

std::string encodeShutdown(std::int32_t commandId)
{
    return startCommand(ShutdownInfoType, commandId, false).take();
}

} // namespace kvx::openwire
