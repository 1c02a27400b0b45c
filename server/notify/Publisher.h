#pragma once

#include "base/Clock.h"
#include "notify/BrokerWorker.h"
#include "store/OutboxStore.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kvx::server {

class AudienceStore;
class Db;
class DbPool;
struct Config;

/// Sends the rows of the outbox to the broker: in the order of their commits, each at least once,
/// whatever happens to the broker or to this process meanwhile. A thread of its own.
class Publisher final : public BrokerWorker {
public:
    /// The full record of a project ("users" included) as JSON with "Command" first where one is
    /// given, made as the message is sent; nothing when the project is gone.
    using ProjectRecord = std::function<std::optional<std::string>(
        Db &, Time now, std::int64_t projectId, const std::string &command)>;

    Publisher(const Config &config, const Clock &clock, DbPool &pool, ProjectRecord record);
    ~Publisher();

    /// Sends what is left for at most that long, then ends. False when the thread could not be
    /// ended in time.
    bool stop(std::chrono::milliseconds limit);

    bool isConnected() const { return m_connected; }
    /// Nothing is published: other machines reach the broker, and it has no guard.
    bool isHeldBack() const { return m_heldBack; }

private:
    struct Prepared {
        OutboxRow row;
        std::string command;
        std::vector<std::string> pieces;
        std::optional<std::string> to; ///< e-mails joined by ";"; nothing: everybody
    };

    void run();
    bool connect();
    void disconnect(const std::string &cause);
    bool pass();
    std::vector<Prepared> nextRows(int maximum);
    Prepared prepare(Db &db, AudienceStore &audience, OutboxRow row) const;
    void send(const Prepared &prepared);
    bool isLeft();
    void markDelivered();
    template <class Result> Result inPool(bool write, std::function<Result(Db &)> work);

    const Config &m_config;
    const Clock &m_clock;
    DbPool &m_pool;
    const ProjectRecord m_record;

    // The publisher thread's own.
    std::int64_t m_lastGiven = 0; ///< rows up to this one were given to the present link
    std::int64_t m_perhapsSent = 0; ///< rows up to this one may have been sent before
    std::int64_t m_nextNumber = 1;
    std::map<std::int64_t, std::int64_t> m_numbers; ///< of rows given and not marked yet
    std::chrono::milliseconds m_backoff { 0 };
    std::string m_lastCause;

    // Guarded.
    std::vector<std::int64_t> m_delivered; ///< rows to be marked
    std::set<std::int64_t> m_inFlight;

    std::atomic<bool> m_connected { false };
    std::atomic<bool> m_heldBack { false };
};

} // namespace kvx::server
