#pragma once

#include "Cursor.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kvx::openwire {

/// A value whose inside is of no interest here (null, character, bytes, map, list), kept as it
/// came.
struct OpaqueValue {
    std::uint8_t tag = 0;
    std::string bytes;

    bool operator==(const OpaqueValue &other) const
    {
        return tag == other.tag && bytes == other.bytes;
    }
};

using Value = std::variant<OpaqueValue, bool, std::int8_t, std::int16_t, std::int32_t, std::int64_t,
    double, float, std::string>;

/// Named values in the order of the wire: message properties and the wire format's options.
using ValueMap = std::vector<std::pair<std::string, Value>>;

/// Throws DecodeError. Nesting beyond maxDepth is an error too.
ValueMap decodeValues(std::string_view bytes);

std::string encodeValues(const ValueMap &values);

/// Null when there is no value of that name.
const Value *findValue(const ValueMap &values, std::string_view name);

} // namespace kvx::openwire
