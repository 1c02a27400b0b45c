#pragma once

namespace kvx::test {

/// A loopback port that nobody listens on right now. Throws std::runtime_error when there is none.
int freePort();

/// Whether somebody listens on that loopback port.
bool isListening(int port);

} // namespace kvx::test
