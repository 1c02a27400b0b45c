#include "Commands.h"

#include "Cursor.h"
#include "NestedObjects.h"

namespace kvx::openwire {

namespace {

// Stack traces are refused in the negotiation, so class and text are all there is.
Failure readFailure(Cursor &cursor)
{
    Failure failure;
    if (cursor.boolean()) {
        failure.className = cursor.string();
        failure.text = cursor.string();
    }
    return failure;
}

std::shared_ptr<MessageData> readMessage(Cursor &cursor, int version)
{
    if (!cursor.boolean())
        return nullptr;
    auto message = std::make_shared<MessageData>();
    message->type = cursor.u8();
    if (message->type < PlainMessageType || message->type > BlobMessageType)
        throw DecodeError("A message is of an unknown type");
    NestedObjects nested(cursor, version);
    cursor.i32(); // command id
    cursor.boolean(); // response required
    nested.producerId();
    message->destination = nested.destination();
    nested.skipObject(); // transaction
    nested.destination(); // original destination
    message->id = nested.messageId().value_or(MessageId());
    nested.skipObject(); // original transaction
    cursor.string(); // group
    cursor.i32(); // group sequence
    message->correlationId = cursor.string();
    message->persistent = cursor.boolean();
    message->expiration = cursor.i64();
    message->priority = cursor.u8();
    message->replyTo = nested.destination();
    message->timestamp = cursor.i64();
    message->jmsType = cursor.string();
    message->content = cursor.byteSequence();
    message->properties = cursor.byteSequence();
    nested.skipObject(); // data structure
    nested.consumerId(); // target consumer
    message->compressed = cursor.boolean();
    message->redeliveryCounter = cursor.i32();
    nested.skipArray(); // broker path
    cursor.i64(); // arrival
    cursor.string(); // user
    cursor.boolean(); // received over a network bridge
    if (version >= 2)
        cursor.boolean(); // droppable
    if (version >= 3) {
        nested.skipArray(); // cluster
        cursor.i64(); // time into the broker
        cursor.i64(); // time out of the broker
    }
    if (version >= 10)
        cursor.boolean(); // first of its group
    if (message->type == BlobMessageType) {
        cursor.string(); // address
        cursor.string(); // MIME type
        cursor.boolean(); // deleted by the broker
        message->type = PlainMessageType;
    }
    return message;
}

MessageDispatch readDispatch(Cursor &cursor, int version)
{
    MessageDispatch dispatch;
    NestedObjects nested(cursor, version);
    dispatch.consumer = nested.consumerId().value_or(ConsumerId());
    const std::optional<DestinationName> destination = nested.destination();
    dispatch.message = readMessage(cursor, version);
    const std::int32_t redelivered = cursor.i32();
    if (dispatch.message) {
        dispatch.message->redeliveryCounter = redelivered;
        // A subscription to many topics learns here which one it was; the acknowledgement repeats
        // it.
        if (destination)
            dispatch.message->destination = destination;
    }
    return dispatch;
}

ConsumerControl readConsumerControl(Cursor &cursor, int version)
{
    ConsumerControl control;
    NestedObjects nested(cursor, version);
    if (version >= 6)
        nested.destination();
    control.close = cursor.boolean();
    control.consumer = nested.consumerId().value_or(ConsumerId());
    return control;
}

} // namespace

Command decodeCommand(std::string_view frame, int version)
{
    Cursor cursor(frame);
    const std::uint8_t type = cursor.u8();
    switch (type) {
    case KeepAliveInfoType:
    case ShutdownInfoType:
    case ConnectionErrorType:
    case ConsumerControlType:
    case MessageDispatchType:
    case ResponseType:
    case ExceptionResponseType:
    case DataResponseType:
    case DataArrayResponseType:
    case IntegerResponseType:
        break;
    default:
        return Ignored();
    }

    const std::int32_t commandId = cursor.i32();
    const bool responseRequired = cursor.boolean();
    switch (type) {
    case KeepAliveInfoType:
        return KeepAlive { commandId, responseRequired };
    case ShutdownInfoType:
        return Shutdown();
    case ConnectionErrorType:
        return ConnectionError { readFailure(cursor) };
    case ConsumerControlType:
        return readConsumerControl(cursor, version);
    case MessageDispatchType:
        return readDispatch(cursor, version);
    case ExceptionResponseType: {
        const std::int32_t correlationId = cursor.i32();
        return Response { correlationId, readFailure(cursor) };
    }
    default:
        return Response { cursor.i32(), std::nullopt };
    }
}

} // namespace kvx::openwire
