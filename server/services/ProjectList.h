#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// The list, single records, and questions about names.
extern const ServiceTable projectListServices;

} // namespace kvx::server
