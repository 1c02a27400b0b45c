#pragma once

#include "base/Clock.h"

#include <cstdint>

namespace kvx::server {

class Db;

/// A row in table `process`; the key under which this process writes its audit chain.
std::int64_t registerProcess(Db &db, Time now);

/// The process is alive.
void noteProcess(Db &db, std::int64_t processId, Time now);

} // namespace kvx::server
