#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <tuple>

namespace kvx::server {

/// Up to which change a session has been told about a module's items, over one connection: the next
/// request on the same connection proves that the reply before arrived. Forgetting costs a longer
/// reply, nothing else. Any thread.
class ItemsTold {
public:
    struct Listener {
        std::uint64_t connectionId;
        std::int64_t sessionId;
        std::int64_t projectId;
        std::int64_t module;
    };
    std::optional<std::int64_t> upTo(const Listener &listener) const;
    void note(const Listener &listener, std::int64_t sequence);

private:
    using Key = std::tuple<std::uint64_t, std::int64_t, std::int64_t, std::int64_t>;
    mutable std::mutex m_mutex;
    std::map<Key, std::int64_t> m_told;
};

} // namespace kvx::server
