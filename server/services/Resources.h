#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// The package of common resources: "comresource/version" and "comresource/download". Their paths
/// name them, so that each is a table of its own.
extern const ServiceTable resourceVersionServices;
extern const ServiceTable resourceDownloadServices;

} // namespace kvx::server
