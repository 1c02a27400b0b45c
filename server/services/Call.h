#pragma once

#include "base/Clock.h"
#include "services/Request.h"
#include "store/AccessStore.h"
#include "store/AuditStore.h"
#include "store/OutboxStore.h"
#include "store/SessionStore.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

struct Config;
class Db;
struct ServiceMemory;

/// The caches of a server that starts.
std::shared_ptr<ServiceMemory> makeServiceMemory();

/// What lives as long as the server and every handler may use.
struct Environment {
    const Config &config;
    const Clock &clock;
    std::string epoch; ///< UUID, new after every restore
    std::int64_t processId = 0;
    /// Caches and waiting places; losing them costs time, never truth.
    std::shared_ptr<ServiceMemory> memory = makeServiceMemory();
};

/// The user of the session that a request came with.
struct Caller {
    std::int64_t userId = 0;
    std::string email; ///< canonical
    std::string name;
    std::int64_t sessionId = 0;
    std::string device;
    bool hasRole = false;
    RoleRights rights; ///< of the first role, read in this transaction
};

/// An uploaded file in `tmp/`, whole but not synced. Removed with this object; the blob store keeps
/// it.
class ReceivedFile {
public:
    ReceivedFile(std::string path, std::int64_t size, std::string sha256, std::string md5);
    ~ReceivedFile();
    ReceivedFile(const ReceivedFile &) = delete;
    ReceivedFile &operator=(const ReceivedFile &) = delete;

    const std::string path;
    const std::int64_t size;
    const std::string sha256; ///< lower-case hexadecimal
    const std::string md5; ///< lower-case hexadecimal
};

/// One run of one handler: the request, who asks, and the transaction it runs in. A handler may run
/// more than once for a request (held replies, continuations): each run sees the rights and the
/// database as they are then.
class Call {
public:
    Call(const Environment &environment, Db &db, const Request &request);

    const Environment &environment() const { return m_environment; }
    const Config &config() const { return m_environment.config; }
    ServiceMemory &memory() const { return *m_environment.memory; }
    const Request &request() const { return m_request; }
    Db &db() { return m_db; }
    Time now() const { return m_now; }

    /// Only for services that need a user.
    const Caller &caller() const { return *m_caller; }
    bool hasCaller() const { return m_caller.has_value(); }
    /// For a login: from here on the request counts as this user's.
    void actAs(Caller caller) { m_caller = std::move(caller); }

    /// The project of "ProjectGUID"; only for services with a project rule.
    const ProjectAccess &project() const { return *m_project; }
    bool hasProject() const { return m_project.has_value(); }

    /// A project named by another key, as this caller sees it; nothing when he may not read it.
    std::optional<ProjectAccess> findProject(const std::string &guid);

    /// Adds a message for all clients to this transaction, in the caller's name.
    void announce(Announcement announcement);
    /// Messages were added in another way: wakes the publisher after the commit.
    void noteAnnounced() { m_announced = true; }

    /// After the commit, runs the requests held under that key (Reply::held) again.
    void wakeHeld(std::string key) { m_wakes.push_back(std::move(key)); }

    /// Ends a session and wakes those who wait for its locks.
    void endSession(std::int64_t sessionId);
    /// A session was added: tells whoever must know the sessions after the commit.
    void noteSessions() { m_sessionsChanged = true; }

    /// A row of the audit log. Who, when, service and project are filled in.
    void audit(int status, const std::string &object, const std::string &detail = {});

    /// A refusal rolls the transaction back, unless the handler wants what it wrote to stay.
    void keepChanges() { m_keepChanges = true; }

    /// The time for which Reply::held asked is over, or the server stops: answer now.
    bool patienceOver() const { return m_patienceOver; }
    /// This run holds up the thread that asks; see Reply::heavy.
    bool isLight() const { return m_light; }
    /// When this request first ran.
    Time firstAsked() const { return m_firstAsked; }

    /// The uploaded file; only in the handler of an upload, not in its `before` step.
    const ReceivedFile *file() const { return m_file.get(); }

    const std::string &address() const { return m_address; } ///< of the peer, without port
    const std::string &token() const { return m_token; } ///< the cookie's text as presented
    /// The same for all requests of one connection, never used twice by a process.
    std::uint64_t connectionId() const { return m_connectionId; }

private:
    friend class Dispatcher;
    const Environment &m_environment;
    Db &m_db;
    const Request &m_request;
    const Time m_now;
    std::optional<Caller> m_caller;
    std::optional<ProjectAccess> m_project;
    std::shared_ptr<const ReceivedFile> m_file;
    std::string m_address;
    std::string m_token;
    std::uint64_t m_connectionId = 0;
    Time m_firstAsked = 0;
    std::vector<std::string> m_wakes;
    bool m_announced = false;
    bool m_sessionsChanged = false;
    bool m_keepChanges = false;
    bool m_patienceOver = false;
    bool m_light = false;
};

} // namespace kvx::server
