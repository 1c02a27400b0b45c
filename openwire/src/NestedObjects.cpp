#include "NestedObjects.h"

#include "Commands.h"

namespace kvx::openwire {

namespace {

struct ObjectLayout {
    std::uint8_t type;
    const char *fields;
};

// Fields in the order of the wire: b bool, B byte, h short, i int, l long, s text, o object,
// a array of objects, y bytes. A digit (hexadecimal) stands before a field that came with that
// version.
constexpr ObjectLayout objectLayouts[] = {
    { BrokerInfoType, "ibosasbbb2b2b2l3s3s" },
    { ConnectionInfoType, "ibosssabb2b6b6b8s" },
    { SessionInfoType, "ibo" },
    { ConsumerInfoType,
        "ibobo"
        "iibsAssbbbBaobbb4a" },
    { ProducerInfoType,
        "iboo"
        "a2b3i" },
    { RemoveInfoType, "ibo5l" },
    { QueueType, "s" },
    { TopicType, "s" },
    { TemporaryQueueType, "s" },
    { TemporaryTopicType, "s" },
    { MessageIdType, "Asoll" },
    { LocalTransactionIdType, "lo" },
    { XATransactionIdType, "iyy" },
    { ConnectionIdType, "s" },
    { SessionIdType, "sl" },
    { ConsumerIdType, "sll" },
    { ProducerIdType, "sll" },
    { BrokerIdType, "s" },
};

const char *layoutOf(std::uint8_t type)
{
    for (const ObjectLayout &layout : objectLayouts) {
        if (layout.type == type)
            return layout.fields;
    }
    throw DecodeError("A command holds an object of the unknown type " + std::to_string(type));
}

} // namespace

NestedObjects::NestedObjects(Cursor &cursor, int version)
    : m_cursor(cursor)
    , m_version(version)
{
}

std::optional<DestinationName> NestedObjects::destination()
{
    if (!m_cursor.boolean())
        return std::nullopt;
    DestinationName result;
    switch (m_cursor.u8()) {
    case TopicType:
        result.kind = cms::Destination::TOPIC;
        break;
    case QueueType:
        result.kind = cms::Destination::QUEUE;
        break;
    case TemporaryTopicType:
        result.kind = cms::Destination::TEMPORARY_TOPIC;
        break;
    case TemporaryQueueType:
        result.kind = cms::Destination::TEMPORARY_QUEUE;
        break;
    default:
        throw DecodeError("A destination is of an unknown type");
    }
    result.name = m_cursor.string();
    return result;
}

std::optional<ConsumerId> NestedObjects::consumerId()
{
    if (!m_cursor.boolean())
        return std::nullopt;
    if (m_cursor.u8() != ConsumerIdType)
        throw DecodeError("A consumer id is of another type");
    ConsumerId id;
    id.connection = m_cursor.string();
    id.session = m_cursor.i64();
    id.value = m_cursor.i64();
    return id;
}

std::optional<ProducerId> NestedObjects::producerId()
{
    if (!m_cursor.boolean())
        return std::nullopt;
    if (m_cursor.u8() != ProducerIdType)
        throw DecodeError("A producer id is of another type");
    ProducerId id;
    id.connection = m_cursor.string();
    id.value = m_cursor.i64();
    id.session = m_cursor.i64();
    return id;
}

std::optional<MessageId> NestedObjects::messageId()
{
    if (!m_cursor.boolean())
        return std::nullopt;
    if (m_cursor.u8() != MessageIdType)
        throw DecodeError("A message id is of another type");
    MessageId id;
    if (m_version >= 10)
        id.textView = m_cursor.string();
    id.producer = producerId().value_or(ProducerId());
    id.producerSequence = m_cursor.i64();
    id.brokerSequence = m_cursor.i64();
    return id;
}

void NestedObjects::skipObject(int depth)
{
    if (depth > maxDepth)
        throw DecodeError("Objects are nested too deeply");
    if (m_cursor.boolean())
        skipFields(layoutOf(m_cursor.u8()), depth);
}

void NestedObjects::skipArray(int depth)
{
    if (!m_cursor.boolean())
        return;
    for (std::int16_t left = m_cursor.i16(); left > 0; --left)
        skipObject(depth + 1);
}

void NestedObjects::skipFields(const char *layout, int depth)
{
    for (; *layout; ++layout) {
        if ((*layout >= '2' && *layout <= '9') || *layout == 'A') {
            const int since = *layout == 'A' ? 10 : *layout - '0';
            ++layout;
            if (m_version < since)
                continue;
        }
        switch (*layout) {
        case 'b':
        case 'B':
            m_cursor.bytes(1);
            break;
        case 'h':
            m_cursor.bytes(2);
            break;
        case 'i':
            m_cursor.bytes(4);
            break;
        case 'l':
            m_cursor.bytes(8);
            break;
        case 's':
            m_cursor.string();
            break;
        case 'o':
            skipObject(depth + 1);
            break;
        case 'a':
            skipArray(depth);
            break;
        case 'y':
            m_cursor.byteSequence();
            break;
        }
    }
}

} // namespace kvx::openwire
