#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::server {

class Db;

/// Who did what, for the audit log.
struct AuditEntry {
    std::optional<std::int64_t> userId;
    std::optional<std::int64_t> sessionId;
    std::string address;
    std::string service;
    std::optional<std::int64_t> projectId;
    std::string object;
    int status = 1;
    std::string detail;
};

/// Appends to the chain of that process, inside the caller's transaction: every row carries the
/// SHA-256 of the one before and its own fields, so that a removed or altered row shows.
void addAudit(Db &db, std::int64_t processId, Time now, const AuditEntry &entry);

std::int64_t dropAuditBefore(Db &db, Time before);

} // namespace kvx::server
