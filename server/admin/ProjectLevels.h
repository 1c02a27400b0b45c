#pragma once

namespace kvx::server {

class AdminSession;
class CommandArguments;

/// "project permissions": the stored levels of a project's users, after the changes asked for.
int editPermissions(AdminSession &session, const CommandArguments &arguments);

} // namespace kvx::server
