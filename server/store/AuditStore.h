#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <functional>
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

/// A row as it was written, with its place in its process's chain.
struct AuditRow {
    std::int64_t processId = 0, number = 0;
    Time at = 0;
    std::string email; ///< of the user, empty for a command
    std::optional<std::int64_t> sessionId;
    std::string address; ///< of the request, or who ran the command
    std::string service;
    std::string projectGuid;
    std::string object;
    int status = 0;
    std::string detail;
    std::string chain;
};

/// Which rows: what is not set is not asked for.
struct AuditQuery {
    std::optional<Time> from, before;
    std::optional<std::int64_t> userId, projectId;
    std::optional<std::string> service;
};

/// Calls `act` for each row, by time.
void eachAudit(Db &db, const AuditQuery &query, const std::function<void(const AuditRow &)> &act);

/// Calls `act` with process and number of each row that does not continue the chain of the one
/// before it. What was dropped for its age is not missed.
void eachBrokenAuditRow(Db &db, const std::function<void(std::int64_t, std::int64_t)> &act);

std::int64_t dropAuditBefore(Db &db, Time before);

} // namespace kvx::server
