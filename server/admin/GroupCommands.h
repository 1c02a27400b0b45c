#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Groups of projects.
extern const AdminCommandTable groupCommands;

} // namespace kvx::server
