#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// Open, close, lock, and who is there.
extern const ServiceTable openCloseServices;

} // namespace kvx::server
