#pragma once

#include "Identifiers.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::openwire {

enum MessageType : std::uint8_t {
    PlainMessageType = 23,
    BytesMessageType = 24,
    MapMessageType = 25,
    ObjectMessageType = 26,
    StreamMessageType = 27,
    TextMessageType = 28,
    BlobMessageType = 29
};

/// A message as it travels. Texts are modified UTF-8; content and properties are left encoded until
/// somebody asks for them.
struct MessageData {
    std::uint8_t type = PlainMessageType;
    MessageId id;
    std::optional<DestinationName> destination;
    std::optional<DestinationName> replyTo;
    std::string correlationId;
    std::string jmsType;
    bool persistent = false;
    std::uint8_t priority = 4;
    std::int64_t expiration = 0;
    std::int64_t timestamp = 0;
    std::int32_t redeliveryCounter = 0;
    bool compressed = false;
    std::string content;
    std::string properties;
};

} // namespace kvx::openwire
