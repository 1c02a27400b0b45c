#pragma once

#include <string>
#include <string_view>

namespace kvx::openwire {

/// Inflates one zlib stream. cms::MessageFormatException when it is damaged or cut, or when it
/// would become larger than a frame may be.
std::string inflateContent(std::string_view compressed);

} // namespace kvx::openwire
