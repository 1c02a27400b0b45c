#pragma once

#include <cstdint>

namespace kvx::server {

class AdminSession;
class CommandArguments;
class Db;
class Listing;

/// The commands of a project that only look.
int listProjects(AdminSession &session, const CommandArguments &arguments);
int showProject(AdminSession &session, const CommandArguments &arguments);
int showHistory(AdminSession &session, const CommandArguments &arguments);

/// The stored levels of a project's users.
Listing permissionsOf(Db &db, std::int64_t projectId);

} // namespace kvx::server
