#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// "logworkingtime", at a path of its own.
extern const ServiceTable workingTimeServices;

} // namespace kvx::server
