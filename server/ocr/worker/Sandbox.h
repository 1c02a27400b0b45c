#pragma once

#include <string>

namespace kvx::ocr {

/// Gives up everything that reading a document does not need, before its first byte is looked at:
/// at most `cpuSeconds` of processor time, 2 GiB of memory and 64 MiB a written file, no core, no
/// further process, no network, no writing to files but those that are open already, and reading
/// only of what the system installs. A root process becomes nobody.
///
/// What the kernel does not offer is left out; the words tell what took effect: "limits",
/// "user", "network", "files", "calls".
std::string enterSandbox(unsigned cpuSeconds);

} // namespace kvx::ocr
