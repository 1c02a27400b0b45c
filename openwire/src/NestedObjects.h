#pragma once

#include "Cursor.h"
#include "Identifiers.h"

#include <optional>
#include <string>

namespace kvx::openwire {

/// Reads the objects inside commands. All throw DecodeError, also for a type that does not belong
/// where it stands: it cannot be skipped, because objects carry no length.
class NestedObjects {
public:
    NestedObjects(Cursor &cursor, int version);

    std::optional<DestinationName> destination();
    std::optional<ConsumerId> consumerId();
    std::optional<ProducerId> producerId();
    std::optional<MessageId> messageId();

    /// Any object, or none. depth counts the objects around it.
    void skipObject(int depth = 1);
    void skipArray(int depth = 1);

private:
    void skipFields(const char *layout, int depth);

    Cursor &m_cursor;
    const int m_version;
};

} // namespace kvx::openwire
