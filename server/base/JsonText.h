#pragma once

#include <string>
#include <string_view>

namespace kvx::server {

/// Text as a JSON string, quotation marks included.
std::string jsonText(std::string_view text);

/// The same in pure ASCII, for HTTP headers.
std::string asciiJson(const std::string &json);

} // namespace kvx::server
