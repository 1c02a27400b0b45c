#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace kvx::test {

/// One end of a connection that does what no real broker can be made to do.
class FakePeer {
public:
    explicit FakePeer(int handle)
        : m_handle(handle)
    {
    }

    /// The type of the next frame and its fields; type -1 when the client has closed.
    struct Frame {
        int type = -1;
        std::int32_t commandId = 0;
        std::string bytes; ///< without length
    };
    Frame frame();
    void send(std::string_view bytes);
    /// The broker's offer, then answers to everything until a command of type was read; that one
    /// is left without answer. Type 0: answers until the client closes.
    void serveUntil(int type);
    void offer();
    void answer(std::int32_t commandId);
    /// Reads and ignores until the client closes.
    void freeze();

private:
    bool readAll(char *to, std::size_t count);

    int m_handle;
};

/// Accepts connections on a loopback port, each served by script on one thread, one at a time.
class FakeBroker {
public:
    explicit FakeBroker(std::function<void(FakePeer &)> script);
    ~FakeBroker();

    std::string uri(const std::string &options = {}) const;

private:
    void run();

    std::function<void(FakePeer &)> m_script;
    int m_listener = -1;
    int m_port = 0;
    std::mutex m_mutex;
    int m_peer = -1; // guarded by m_mutex
    bool m_ending = false; // guarded by m_mutex
    std::thread m_thread;
};

/// A frame of these bytes, its length put in front.
std::string framed(std::string_view bytes);

/// "00 0a ff" as bytes; blanks are skipped.
std::string fromHex(std::string_view hex);
std::string toHex(std::string_view bytes);

} // namespace kvx::test
