#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Roles, their permissions and their members.
extern const AdminCommandTable roleCommands;

} // namespace kvx::server
