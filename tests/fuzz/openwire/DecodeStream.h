#pragma once

#include <string_view>

namespace kvx::test {

/// Reads bytes as a client reads what a broker sends: the offer first, then commands in the agreed
/// version, and of every message all that a listener could ask for. Ends where the connection
/// would. Anything but the declared exceptions, or a result that breaks a promise, aborts.
void decodeStream(std::string_view bytes);

} // namespace kvx::test
