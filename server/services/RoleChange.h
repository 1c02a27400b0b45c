#pragma once

#include "base/Clock.h"
#include "store/RoleStore.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// The one path on which roles, their members, or an account's being enabled change: whatever asks
/// for it, a service or a command. It looks at what everybody may do before and after, raises the
/// table's revision, tells all clients, and frees what those hold who may no longer write:
///
///     RoleChange change(db);            // inside the writing transaction, before the first change
///     assignRole(db, role, user);       // any changes
///     const auto outcome = change.finish(now, sender, session);
///     if (!outcome) …                   // roll back: no enabled administrator would remain
class RoleChange {
public:
    explicit RoleChange(Db &db);

    struct Outcome {
        bool changed = false; ///< false: the table is as it was, and nothing was announced
        std::int64_t revision = 0;
        std::vector<std::string> users; ///< e-mails of those whose rights or roles changed
        /// Their log locks were freed: wake those who wait (logLockKey) after the commit.
        std::vector<std::int64_t> unlockedProjects;
        std::string detail; ///< what changed, for the audit log
    };
    /// Nothing when no enabled administrator remains. `sender` is the e-mail of the acting user and
    /// `session` his; empty and 0 for a command.
    std::optional<Outcome> finish(
        Time now, const std::string &sender = {}, std::int64_t session = 0);

private:
    struct Standing {
        std::string email;
        bool disabled = false;
        std::vector<std::int64_t> roles; ///< in order: the first one counts
        std::string roleName;
        RoleRights rights;

        bool operator==(const Standing &other) const;
    };
    struct Snapshot {
        std::vector<Role> roles;
        std::map<std::int64_t, Standing> users;
    };
    static Snapshot look(Db &db);
    std::vector<std::int64_t> withdrawLost(
        Time now, std::int64_t userId, const RoleRights &former, const RoleRights &rights);

    Db &m_db;
    const Snapshot m_before;
};

} // namespace kvx::server
