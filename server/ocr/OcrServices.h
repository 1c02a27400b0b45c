#pragma once

#include "services/ServiceTable.h"

namespace kvx::server {

/// Recognition of scanned pages: submit, state, result, cancel, languages. For every user with a
/// role; a job is visible to its user only.
extern const ServiceTable ocrServices;

} // namespace kvx::server
