#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// Report templates: "reportTemplateUpload", "…Download", "…Query", "…Delete", "…Rename",
/// "…Exist", "…ExistByID".
extern const ServiceTable templateServices;

} // namespace kvx::server
