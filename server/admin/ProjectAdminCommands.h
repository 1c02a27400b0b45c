#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Projects: looks, and what helps when something is stuck or gone.
extern const AdminCommandTable projectAdminCommands;

} // namespace kvx::server
