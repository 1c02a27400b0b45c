#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// Upload and download by file name.
extern const ServiceTable fileServices;

} // namespace kvx::server
