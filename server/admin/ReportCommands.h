#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Figures over the whole server.
extern const AdminCommandTable reportCommands;

} // namespace kvx::server
