#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::server {

class Db;

/// What a version adds to its project's chain of digests.
struct ChainLink {
    std::string before; ///< the chain digest of the version before, empty for version 0
    std::string guid; ///< as given at the project's creation
    std::int64_t version = 0;
    std::string logDigest, fileDigest; ///< SHA-256
    std::int64_t userId = 0;
    Time at = 0;
};

/// SHA-256 over the link's members in the order above, as text with line feeds between: whoever
/// alters an earlier version has to alter every later one.
std::string chainDigest(const ChainLink &link);

/// The log lock of the projects and their published change logs. Every change of the lock or the
/// version is one statement that names the state it starts from and touches one row or none.
class LogStore {
public:
    explicit LogStore(Db &db)
        : m_db(db)
    {
    }

    /// Takes the lock when it is free, its lease is over, or it is the session's own and its save
    /// is published: the generation rises and what was staged under the former one is dropped. The
    /// new generation, or nothing when somebody holds it.
    std::optional<std::int64_t> take(
        std::int64_t projectId, std::int64_t sessionId, std::int64_t userId, Time now, Time until);
    /// A new lease for the session that holds the lock, also when the former one ran out and nobody
    /// has taken it since. False once its save is published: a release that was lost leaves no lock
    /// for the next save.
    bool renew(std::int64_t projectId, std::int64_t sessionId, Time until);
    /// Frees the session's lock and drops its stage. False when it did not hold it.
    bool release(std::int64_t projectId, std::int64_t sessionId);
    /// The same whoever of this user's sessions holds it.
    bool releaseOfUser(std::int64_t projectId, std::int64_t userId);
    /// The same whoever holds it; the generation rises, so that nothing of the former holder's save
    /// counts any more.
    bool revoke(std::int64_t projectId);

    struct Publication {
        std::int64_t projectId = 0;
        std::int64_t version = 0; ///< the new one
        std::int64_t sessionId = 0, userId = 0, generation = 0;
        std::string device;
        std::string logBlob, logMd5, fileBlob, fileMd5;
        std::int64_t logSize = 0;
        std::optional<std::string> amount; ///< nothing keeps the present one
        std::string chain;
        Time now = 0;
    };
    /// Raises the version by one for the session that holds the lock in that generation. False, and
    /// nothing changed, when the version, the session or the generation is another by now.
    bool publish(const Publication &publication);
    /// The project's first file, before any log. False when there is one or a log was published.
    bool setFirstFile(std::int64_t projectId, const std::string &blob, const std::string &md5);
    /// Forgets which project files belonged to the versions up to `version`, so that they can go.
    void forgetFiles(std::int64_t projectId, std::int64_t version);

    struct Log {
        std::string blob;
        std::string md5;
        std::int64_t size = 0;
        std::int64_t sessionId = 0, generation = 0;
        std::string chain;
        Time at = 0;
    };
    std::optional<Log> log(std::int64_t projectId, std::int64_t version);

private:
    Db &m_db;
};

} // namespace kvx::server
