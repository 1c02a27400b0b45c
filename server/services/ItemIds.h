#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvx::server {

/// Item numbers sent as text: decimal numbers 0..2147483647, each followed by ";" (the last one may
/// do without). In ascending order, each once. At most 500,000. Throws BadRequest.
std::vector<std::int64_t> parseItemIds(const std::string &text);

} // namespace kvx::server
