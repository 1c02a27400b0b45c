#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kvx::server {

/// Fills the buffer with the next bytes of a command file; fewer than asked for only at its end.
using ReadBytes = std::function<std::size_t(char *buffer, std::size_t size)>;

/// What is wrong with a change log's command file (docs/change-logs.md), as the end of a sentence
/// for the user; nothing when it is whole, publishes that version of that project, and its
/// changeset has the structure that clients accept. Whether the changes fit the project's content
/// only clients can tell. Reads from front to back in constant memory; nothing of it reaches the
/// database, whose own reader does not survive every changeset.
std::optional<std::string> faultOfCommandFile(
    const ReadBytes &read, const std::string &guid, std::int64_t version);

} // namespace kvx::server
