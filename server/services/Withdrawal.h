#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <string>

namespace kvx::server {

class Db;

/// Frees what a user who may no longer write holds in a project (log lock with its stage, project
/// lock, check-outs), and what he has open when he may not read it either. Tells the others, in the
/// server's name: the acting user's own client does not know of it. True when a log lock was freed:
/// whoever waits for it is to be woken after the commit.
bool withdraw(Db &db, Time now, std::int64_t projectId, const std::string &guid,
    std::int64_t userId, bool mayRead);

/// Frees all check-outs of a user, in every project, and tells the others: for an account that does
/// not come back.
void freeAllItems(Db &db, Time now, std::int64_t userId);

} // namespace kvx::server
