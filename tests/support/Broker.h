#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace kvx::test {

/// A real message broker on free loopback ports, with the configuration that is shipped
/// (server/broker). Nothing survives it: its folder is removed with the object, its process ends
/// with the test's process even when that crashes.
///
/// Start it on a thread that lives as long as the broker: the system ends it with its thread.
/// Every member throws std::runtime_error with the broker's own words when something fails.
class Broker {
public:
    struct User {
        std::string name;
        std::string password;
    };

    /// The server's account at a broker with guard.
    static const User guardedServer;

    struct Options {
        std::vector<User> users; ///< accounts; none: no authentication at all
        bool anonymous = true; ///< with accounts: clients without user name get in too
        /// With the guard in front, which hears `guardedServer` only.
        bool guard = false;
        long long maxFrame = 16 << 20; ///< bytes
        int maxConnections = 2500;
        int slowLimit = 600000; ///< ms; a client that acknowledges nothing for so long is cut off
    };

    /// Returns when clients can connect.
    Broker();
    explicit Broker(Options options);
    ~Broker();
    Broker(const Broker &) = delete;
    Broker &operator=(const Broker &) = delete;

    int port() const { return m_port; } ///< plain OpenWire
    int autoPort() const { return m_autoPort; } ///< finds out the protocol by itself
    std::string uri() const; ///< tcp://127.0.0.1:port
    std::string autoUri() const;

    void kill(); ///< at once, as a crash
    void stop(); ///< orderly
    void restart(); ///< on the same ports, after kill() or stop(); stops first when running
    void freeze(); ///< sockets stay open, nothing moves
    void thaw();

    std::string logText() const; ///< what the broker has written since its start

private:
    bool launch();
    void awaitEnd();
    std::string passwordFile(const User &user) const;

    const Options m_options;
    std::string m_folder;
    int m_port = 0;
    int m_autoPort = 0;
    pid_t m_process = -1;
};

} // namespace kvx::test
