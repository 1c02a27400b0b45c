#pragma once

#include "store/RoleStore.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace kvx::server {

class Db;

/// Who may hear of projects, in one snapshot: users who have a session, since nobody else listens.
/// Somebody who logs in later learns everything from the list.
class AudienceStore {
public:
    explicit AudienceStore(Db &db)
        : m_db(db)
    {
    }

    /// E-mails, joined by ";", of those who see the project (a removed one too, as long as it is
    /// kept) and of `alsoTo`, which is joined likewise. Empty when there are none.
    std::string of(std::int64_t projectId, const std::string &alsoTo);

private:
    struct Listener {
        std::int64_t userId = 0;
        std::string email;
        std::int64_t roleId = 0; ///< the one that counts; 0 is none
    };
    void load();
    std::string seeing(std::int64_t projectId);

    Db &m_db;
    bool m_loaded = false;
    std::vector<Listener> m_listeners;
    std::unordered_map<std::int64_t, RoleRights> m_roles;
    std::unordered_map<std::int64_t, std::string> m_audiences; ///< by project, as far as asked for
};

} // namespace kvx::server
