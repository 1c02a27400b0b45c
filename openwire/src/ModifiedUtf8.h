#pragma once

#include <string>
#include <string_view>

namespace kvx::openwire {

/// The form that header texts need: modified UTF-8 (U+0000 as C0 80, a character above U+FFFF as
/// two three-byte surrogates). Such text passes unchanged, ordinary UTF-8 is converted. The broker
/// drops a connection whose header texts are not in this form, so anything that is neither throws
/// cms::MessageFormatException.
std::string toModifiedUtf8(std::string_view text);

} // namespace kvx::openwire
