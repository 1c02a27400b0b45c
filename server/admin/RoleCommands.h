#pragma once

#include <string>

namespace kvx::server {

class AdminSession;

int listRolesCommand(AdminSession &session);
/// Gives or takes a role; the last enabled administrator keeps his.
int assignRoleCommand(
    AdminSession &session, const std::string &role, const std::string &email, bool assign);

} // namespace kvx::server
