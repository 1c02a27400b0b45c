#pragma once

#include "store/OutboxStore.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kvx::server {

/// "CheckOut" or "CheckIn" of a module's items.
Announcement itemsAnnouncement(std::int64_t projectId, const std::string &guid,
    const std::string &command, std::int64_t module);

/// "Update" of the roles, with the e-mails of those whose rights or roles changed. Too many for one
/// message: none is named, which clients take for "anybody".
Announcement rolesAnnouncement(const std::vector<std::string> &emails);

} // namespace kvx::server
