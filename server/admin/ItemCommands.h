#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Checked-out items.
extern const AdminCommandTable itemCommands;

} // namespace kvx::server
