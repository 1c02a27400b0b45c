#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// The end of a save: what was staged becomes the next version.
extern const ServiceTable saveServices;

} // namespace kvx::server
