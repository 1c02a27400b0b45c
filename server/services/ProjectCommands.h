#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// What removes or changes a project's record.
extern const ServiceTable projectCommandServices;

} // namespace kvx::server
