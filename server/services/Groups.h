#pragma once

#include "services/ServiceTable.h"

#include <string>

namespace kvx::server {

class Db;

/// The number of living projects that name the group.
std::size_t projectsInGroup(Db &db, const std::string &group);

/// Groups of projects.
extern const ServiceTable groupServices;

} // namespace kvx::server
