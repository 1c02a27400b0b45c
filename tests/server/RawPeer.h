#pragma once

#include <cstdint>
#include <string>

namespace kvx::test {

/// A peer of the broker that speaks the wire protocol by hand, for what no client library would
/// send. Every request gives the broker's refusal in its own words, or nothing. Throws
/// std::runtime_error when the broker does not answer within ten seconds.
class RawPeer {
public:
    enum Kind : std::uint8_t {
        Queue = 100,
        Topic = 101,
        TemporaryQueue = 102,
        TemporaryTopic = 103
    };

    /// What a consumer asks for.
    struct Wanted {
        Kind kind = Topic;
        std::string name;
        std::string selector = {};
        std::string subscription = {}; ///< makes it durable
        bool browser = false;
        bool network = false;
        bool dispatchAsync = true;
    };

    explicit RawPeer(int port);
    ~RawPeer();
    RawPeer(const RawPeer &) = delete;
    RawPeer &operator=(const RawPeer &) = delete;

    /// Empty texts are sent as absent ones.
    std::string connect(const std::string &clientId, const std::string &user = {},
        const std::string &password = {});
    std::string consume(const Wanted &wanted);
    /// An empty name: a producer for any destination.
    std::string produce(Kind kind, const std::string &name);
    std::string addDestination(Kind kind, const std::string &name);
    std::string removeDestination(Kind kind, const std::string &name);
    /// An unnamed message of the producer made last.
    std::string send(Kind kind, const std::string &name, const std::string &text);

    /// Messages that came so far, together with what comes within that time.
    int dispatched(int milliseconds);

private:
    std::string request(std::uint8_t type, const std::string &fields);
    std::string destinationInfo(std::uint8_t operation, Kind kind, const std::string &name);
    bool readFrame(int milliseconds, std::string &frame);

    int m_socket = -1;
    std::string m_received;
    std::string m_connectionId;
    std::int32_t m_lastCommand = 0;
    std::int64_t m_lastId = 0;
    std::int64_t m_lastMessage = 0;
    int m_dispatched = 0;
};

} // namespace kvx::test
