#pragma once

#include "Identifiers.h"
#include "MessageData.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kvx::openwire {

enum CommandType : std::uint8_t {
    NullType = 0,
    WireFormatInfoType = 1,
    BrokerInfoType = 2,
    ConnectionInfoType = 3,
    SessionInfoType = 4,
    ConsumerInfoType = 5,
    ProducerInfoType = 6,
    KeepAliveInfoType = 10,
    ShutdownInfoType = 11,
    RemoveInfoType = 12,
    ConnectionErrorType = 16,
    ConsumerControlType = 17,
    MessageDispatchType = 21,
    MessageAckType = 22,
    ResponseType = 30,
    ExceptionResponseType = 31,
    DataResponseType = 32,
    DataArrayResponseType = 33,
    IntegerResponseType = 34,
    QueueType = 100,
    TopicType = 101,
    TemporaryQueueType = 102,
    TemporaryTopicType = 103,
    MessageIdType = 110,
    LocalTransactionIdType = 111,
    XATransactionIdType = 112,
    ConnectionIdType = 120,
    SessionIdType = 121,
    ConsumerIdType = 122,
    ProducerIdType = 123,
    BrokerIdType = 124
};

/// A failure as the broker words it. The class name is text only: nothing is looked up by it.
struct Failure {
    std::string className;
    std::string text;
};

struct Response {
    std::int32_t correlationId = 0;
    std::optional<Failure> failure;
};

struct MessageDispatch {
    ConsumerId consumer;
    std::shared_ptr<MessageData> message; // null where the broker sent none
};

/// The broker ends a consumer, or changes how it is served.
struct ConsumerControl {
    ConsumerId consumer;
    bool close = false;
};

struct KeepAlive {
    std::int32_t commandId = 0;
    bool responseRequired = false;
};

struct ConnectionError {
    Failure failure;
};

struct Shutdown { };

/// Commands without consequences for a client, unknown ones among them.
struct Ignored { };

using Command = std::variant<Ignored, Response, MessageDispatch, ConsumerControl, KeepAlive,
    ConnectionError, Shutdown>;

/// Reads a frame without its length, in the form of the negotiated version. Throws DecodeError when
/// a known command cannot be read; an unknown one is Ignored.
Command decodeCommand(std::string_view frame, int version);

struct ConnectionRequest {
    std::string connectionId;
    std::string clientId;
    std::optional<std::string> userName; // none and empty are different things to the broker
    std::optional<std::string> password;
};

struct ConsumerRequest {
    ConsumerId id;
    DestinationName destination;
    std::string selector;
    bool noLocal = false;
    std::int32_t prefetch = 0;
};

// Each returns a whole frame. Requests have their answer asked for.
std::string encodeConnectionInfo(
    const ConnectionRequest &request, std::int32_t commandId, int version);
std::string encodeSessionInfo(const SessionId &id, std::int32_t commandId);
std::string encodeConsumerInfo(const ConsumerRequest &request, std::int32_t commandId, int version);
std::string encodeProducerInfo(const ProducerId &id,
    const std::optional<DestinationName> &destination, std::int32_t commandId, int version);
std::string encodeRemoveConnection(const std::string &id, std::int32_t commandId, int version);
std::string encodeRemoveSession(const SessionId &id, std::int32_t commandId, int version);
std::string encodeRemoveConsumer(const ConsumerId &id, std::int32_t commandId, int version);
std::string encodeRemoveProducer(const ProducerId &id, std::int32_t commandId, int version);
std::string encodeMessage(
    const MessageData &message, std::int32_t commandId, bool responseRequired, int version);
std::string encodeAcknowledgement(
    const ConsumerId &consumer, const MessageData &message, std::int32_t commandId, int version);
std::string encodeKeepAlive(std::int32_t commandId);
std::string encodeShutdown(std::int32_t commandId);

} // namespace kvx::openwire
