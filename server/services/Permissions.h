#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// Who may do what in a project.
extern const ServiceTable permissionServices;

} // namespace kvx::server
