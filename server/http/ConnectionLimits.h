#pragma once

#include <map>
#include <mutex>
#include <string>

namespace kvx::server {

struct Config;

/// Counts the connections of the services against `limits.connections` and `limits.perAddress`; a
/// trusted proxy speaks for many, so only the former holds for it. Any thread.
class ConnectionLimits {
public:
    /// `Dropped`: one too many, and so many are being told so already that this one is closed
    /// without a word.
    enum class Verdict { Admitted, ServerFull, AddressFull, Dropped };

    explicit ConnectionLimits(const Config &config);

    /// Counts the connection until `leave`, unless it is dropped. The first refusal leaves a line
    /// in the log, the next one not before half of the limit was free again.
    Verdict admit(const std::string &peer);
    void leave(const std::string &peer, Verdict verdict);

private:
    struct Filling {
        int count = 0;
        bool told = false;
        void decrease(int limit);
    };
    Verdict refuse(Verdict verdict, Filling &filling, const char *limit, const std::string &peer);

    const Config &m_config;
    std::mutex m_mutex;
    Filling m_all;
    std::map<std::string, Filling> m_perAddress;
    int m_beingRefused = 0;
};

} // namespace kvx::server
