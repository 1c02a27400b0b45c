#pragma once

#include "store/RoleStore.h"

#include <string>

namespace kvx::server {

class AdminChange;
class Db;
class RoleChange;

/// The role of that name; throws CommandRefused when there is none.
Role roleNamed(Db &db, const std::string &name);

/// Ends a change of roles or accounts: tells everybody and frees what was lost with a right. False
/// when nothing was changed. Throws CommandRefused when no enabled administrator would remain.
bool finishRoleChange(AdminChange &change, RoleChange &roleChange);

} // namespace kvx::server
