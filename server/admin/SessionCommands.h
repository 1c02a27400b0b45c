#pragma once

#include "admin/AdminCommand.h"

#include <cstdint>
#include <optional>

namespace kvx::server {

/// Who is logged in, and where.
extern const AdminCommandTable sessionCommands;

/// Prints the sessions of a user, or all.
int listSessionsOf(AdminSession &session, const std::optional<std::int64_t> &userId);

} // namespace kvx::server
