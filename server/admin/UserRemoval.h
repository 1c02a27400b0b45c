#pragma once

#include <cstdint>

namespace kvx::server {

class AdminChange;
struct User;

/// Takes everything from a user but his name in what he is the author of: sessions, roles, access
/// to projects, check-outs, his own files. The number of projects he is no longer listed in. Throws
/// CommandRefused for the last enabled administrator.
std::int64_t removeAccount(AdminChange &change, const User &user);

} // namespace kvx::server
