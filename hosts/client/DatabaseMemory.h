#pragma once

namespace kvx::host {

/// The most memory that SQLite may take in this process: a log of the largest size, 256 MiB, once
/// as it is read and once as it is applied.
constexpr long long databaseMemory = 512LL * 1024 * 1024;

/// Sets that limit; what would go beyond it fails with "out of memory" and is rolled back. For the
/// whole process, so the program's own decision. SQLite must count its memory
/// (SQLITE_CONFIG_MEMSTATUS, on by default). False: it took no limit.
bool limitDatabaseMemory();

} // namespace kvx::host
