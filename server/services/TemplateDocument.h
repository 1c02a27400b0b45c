#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kvx::server {

/// The bytes of a template that came as Base64 (standard alphabet, padded): at most 8 MiB, one JSON
/// object in UTF-8, not nested deeper than clients read. Nothing when it is anything else.
std::optional<std::string> templateDocument(std::string_view base64Text);

/// Standard alphabet, padded.
std::string base64(std::string_view bytes);

} // namespace kvx::server
