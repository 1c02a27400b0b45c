#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// The package of common resources.
extern const AdminCommandTable resourceCommands;

} // namespace kvx::server
