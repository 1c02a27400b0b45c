#pragma once

#include <array>
#include <condition_variable>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace kvx::test {

/// Passes connections on to a port of this machine and does to one of their bytes what networks
/// do. Bytes are counted in each direction over all connections together, from the moment the
/// fault was set. Callable from any thread.
class FaultProxy {
public:
    enum Direction { ToServer, ToClient };
    enum Kind {
        None,
        Cut, ///< at the byte, both ends are reset
        Truncate, ///< the byte and what follows is dropped, and both ends close in order
        Freeze, ///< from the byte on nothing moves on any connection; new ones are accepted
        Flip, ///< the byte's lowest bit is another
        Repeat, ///< the piece that the byte came with is passed on twice
        Drip ///< from the byte on, so many bytes a second in each direction
    };
    struct Fault {
        Kind kind = None;
        Direction direction = ToServer;
        long at = 0;
        /// Counts from the end of the first place where this text was passed on in the direction;
        /// empty: from the beginning.
        std::string after = {};
        long rate = 0; ///< of Drip
    };

    explicit FaultProxy(int target = 0);
    ~FaultProxy();
    FaultProxy(const FaultProxy &) = delete;
    FaultProxy &operator=(const FaultProxy &) = delete;

    int port() const { return m_port; }
    std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }
    void setTarget(int port);

    /// One fault at a time; it strikes once, Freeze and Drip until the next is set.
    void set(const Fault &fault);
    void clear() { set({}); }
    /// Resets every connection that stands.
    void cutAll();
    /// From now on nothing moves on the connections that stand, and they are not closed; new ones
    /// are passed on.
    void abandonAll();
    bool struck();
    /// Waits for that; false when the time is over.
    bool awaitStruck(int seconds);
    /// Bytes passed on since the fault was set; with `after`, since its text.
    long passed(Direction direction);

private:
    /// What has come from one end and waits for the other.
    struct Stream {
        int from = -1;
        int to = -1;
        std::string waiting = {};
        bool ended = false; ///< nothing more comes
        bool closed = false; ///< and the other end was told
        double allowance = 0; ///< bytes that Drip lets through now
    };
    struct Connection {
        std::array<Stream, 2> streams;
        bool over = false;
        bool reset = false;
        bool abandoned = false;
    };
    struct Count {
        long bytes = 0;
        bool counting = true;
        std::string tail; ///< the last bytes, in which `after` may begin
    };

    void run();
    void accept();
    void read(Connection &connection, Direction direction);
    void write(Stream &stream);
    /// Counts the piece and does to it what the fault says.
    void pass(Connection &connection, Direction direction, std::string piece);
    void strike(Connection &connection, Stream &stream, std::string piece, std::size_t at);
    bool frozen() const { return m_struck && m_fault.kind == Freeze; }
    static void close(Connection &connection);

    int m_port = 0;
    int m_listener = -1;
    std::mutex m_mutex; ///< guards what follows
    std::condition_variable m_changed;
    int m_target = 0;
    Fault m_fault;
    bool m_struck = false;
    bool m_ending = false;
    std::array<Count, 2> m_counts;
    std::list<Connection> m_connections;
    std::thread m_thread;
};

} // namespace kvx::test
