#pragma once

#include "services/ServiceTable.h"

#include <vector>

namespace kvx::server {

struct Template;

/// Deletes living templates and tells everybody.
void removeTemplates(Call &call, const std::vector<Template> &removed);

/// Report templates: "reportTemplateUpload", "…Download", "…Query", "…Delete", "…Rename",
/// "…Exist", "…ExistByID".
extern const ServiceTable templateServices;

} // namespace kvx::server
