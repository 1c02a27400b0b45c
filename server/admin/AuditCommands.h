#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// What was changed, by whom.
extern const AdminCommandTable auditCommands;

} // namespace kvx::server
