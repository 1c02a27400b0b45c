#pragma once

#include <string>

namespace kvx {

/// Java's modified UTF-8, as broker texts arrive, to UTF-8: U+0000 comes as C0 80, a character
/// above U+FFFF as two surrogates of three bytes each. Everything else stays as it is, so valid
/// UTF-8 passes unchanged and broken text is left to the reader.
std::string fromModifiedUtf8(const std::string &text);

} // namespace kvx
