#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// New projects and addenda.
extern const ServiceTable projectCreationServices;

} // namespace kvx::server
