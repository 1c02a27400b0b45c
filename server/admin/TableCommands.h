#pragma once

#include "admin/AdminCommand.h"

namespace kvx::server {

/// Tables that the users share.
extern const AdminCommandTable tableCommands;

} // namespace kvx::server
