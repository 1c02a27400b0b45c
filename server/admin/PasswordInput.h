#pragma once

#include <string>

namespace kvx::server {

/// A password from the terminal (asked twice, not shown) or the first line of standard input.
/// Throws CommandRefused when it is empty, too long, or the two differ.
std::string readNewPassword();

} // namespace kvx::server
