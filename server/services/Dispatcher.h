#pragma once

#include "services/Call.h"
#include "services/Reply.h"
#include "services/ServiceTable.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace kvx::server {

class DbPool;
template <class T> class HeldRequests;
class RateLimiter;
class WorkPool;

/// One request on its way through the server. Made by the HTTP side, which keeps it until the
/// reply has come.
struct Exchange {
    const Endpoint *endpoint = nullptr;
    std::string body; ///< the JSON text; of an upload its request part
    bool multipart = false;
    std::string token; ///< of the session cookie, empty without
    std::string address;
    std::uint64_t connectionId = 0;
    std::shared_ptr<const ReceivedFile> file;

    /// The peer has gone: a held request is dropped instead of run again. Any thread.
    std::atomic<bool> abandoned { false };

    std::string requestId; ///< made by the dispatcher

    // The dispatcher's own notes.
    std::shared_ptr<const Request> request;
    const Service *service = nullptr;
    ServiceRule rules = Anonymous; ///< of this request
    Time firstAsked = 0;
    bool counted = false; ///< against the session's rates: once, however often it runs
    std::uint64_t heldNumber = 0;
    bool patienceOver = false;
    Time holdEnd = 0;
    std::string userEmail;
    std::string projectGuid;
    std::int64_t sessionId = 0;
    Time lastTouch = 0;
};

using ExchangePtr = std::shared_ptr<Exchange>;
/// Called once, on any thread, without a transaction.
using Completion = std::function<void(Reply)>;

/// Takes every request from its text to its reply: parse, find the service, session, identity,
/// rights, transaction, handler, commit, then wake those who wait and whoever is to be told, one
/// log line. A reply never leaves before its commit. Any thread.
class Dispatcher {
public:
    /// Called after a commit, on any thread: messages wait, sessions began or ended.
    struct Told {
        std::function<void()> announced = [] {};
        std::function<void()> sessionsChanged = [] {};
    };
    Dispatcher(const Environment &environment, DbPool &pool, Told told);
    ~Dispatcher();

    /// A request without file.
    void dispatch(const ExchangePtr &exchange, Completion done);

    /// The request part of an upload: Ok means "send the file", anything else is the reply.
    void beginUpload(const ExchangePtr &exchange, Completion decided);
    /// The file has arrived (`exchange->file`).
    void finishUpload(const ExchangePtr &exchange, Completion done);
    /// Bytes of an upload are arriving: keeps the session and its log locks alive.
    void noteProgress(const ExchangePtr &exchange);

    /// A refusal made by the HTTP side itself (too large, not understood): numbered, rendered and
    /// logged like the others.
    void reject(const ExchangePtr &exchange, Reply &reply);

    /// Whether that token belongs to a live session: asked before the body of an upload is.
    void findLiveSession(const std::string &token, std::function<void(bool)> answer);

    /// Runs the requests held under that key again, before everything that is queued.
    void wakeHeld(const std::string &key);

    /// No new work: requests are answered "Busy", held ones run once more and must answer.
    void drain();
    /// After the last request, before the database pool goes: ends the work beside it.
    void stopWorkers();

private:
    enum class Step { BeforeUpload, Handler };
    struct Run;

    bool prepare(const ExchangePtr &exchange, const Completion &done);
    void start(std::shared_ptr<Run> run);
    void execute(Db &db, const std::shared_ptr<Run> &run);
    Reply runInTransaction(Db &db, Run &run, Call &call);
    void settle(const std::shared_ptr<Run> &run, Reply reply);
    void finish(const ExchangePtr &exchange, const Completion &done, Reply reply);
    void logReply(const ExchangePtr &exchange, const Reply &reply);
    void touchLater(std::int64_t sessionId);

    // Admission.cpp
    std::optional<Reply> admit(Db &db, Exchange &exchange, Call &call, bool &touchDue);
    std::optional<Reply> admitSession(Db &db, Exchange &exchange, Call &call, bool &touchDue);
    bool isWithinRates(std::int64_t sessionId, ServiceRule rules, const Call &call);
    static std::optional<Reply> admitIdentity(ServiceRule rules, Call &call);
    static std::optional<Reply> admitToProject(ServiceRule rules, Call &call);
    static std::optional<Reply> admitToCreate(Call &call);

    const Environment &m_environment;
    DbPool &m_pool;
    const Told m_told;
    std::unique_ptr<HeldRequests<Run>> m_held;
    std::unique_ptr<RateLimiter> m_limiter;
    std::unique_ptr<WorkPool> m_hashers;
    std::unique_ptr<WorkPool> m_workers;
    std::unique_ptr<WorkPool> m_readers; ///< of foreign documents: slow ones must not hold up saves
    WorkPool &poolOf(const Reply &reply) const;
    std::atomic<bool> m_draining { false };
};

} // namespace kvx::server
