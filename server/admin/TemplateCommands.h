#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Shared report templates.
extern const AdminCommandTable templateCommands;

} // namespace kvx::server
