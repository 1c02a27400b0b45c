#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace kvx::test {

/// Passes connections on to a port of this machine, and can be told to cut them, hold them up or
/// let no more in. Which ones is told by a text that has gone over them towards that port.
class Relay {
public:
    explicit Relay(int target);
    ~Relay();
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;

    int port() const { return m_port; }
    std::string uri() const { return "tcp://127.0.0.1:" + std::to_string(m_port); }

    /// How many connections live over which that text has gone.
    int count(const std::string &text);
    /// Ends them at once; how many they were.
    int cut(const std::string &text);
    /// From now on what they send arrives so much later, each piece after the one before it.
    void delay(const std::string &text, std::chrono::milliseconds time);
    /// New connections are closed at once, until they are accepted again.
    void setRefusing(bool refusing);

private:
    using Clock = std::chrono::steady_clock;
    struct Piece {
        Clock::time_point due;
        std::string bytes;
    };
    struct Pair {
        int client = -1;
        int target = -1;
        std::string said; ///< the first part of what the client sent
        std::chrono::milliseconds delay { 0 };
        std::list<Piece> toTarget;
        std::list<Piece> toClient;
        bool over = false;
    };

    void run();
    void accept();
    void read(Pair &pair, bool fromClient);
    static void write(int socket, std::list<Piece> &pieces, bool &over);

    const int m_target;
    int m_port = 0;
    int m_listener = -1;
    std::mutex m_mutex; ///< guards what follows
    std::list<Pair> m_pairs;
    bool m_refusing = false;
    bool m_ending = false;
    std::thread m_thread;
};

} // namespace kvx::test
