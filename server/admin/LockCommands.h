#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Who holds which lock.
extern const AdminCommandTable lockCommands;

} // namespace kvx::server
