#pragma once

#include <string>
#include <vector>

namespace kvx::server {

class AdminSession;

int addUserCommand(AdminSession &session, const std::string &email, const std::string &name,
    const std::vector<std::string> &roles);
int listUsersCommand(AdminSession &session);
/// Ends the user's sessions.
int setPasswordCommand(AdminSession &session, const std::string &email);
/// Disabling ends the user's sessions; the last enabled administrator cannot be disabled.
int disableUserCommand(AdminSession &session, const std::string &email, bool disabled);

} // namespace kvx::server
