#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Accounts.
extern const AdminCommandTable userCommands;

} // namespace kvx::server
