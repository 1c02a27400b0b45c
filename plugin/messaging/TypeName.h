#pragma once

#include <string>
#include <typeinfo>

namespace kvx {

/// The name of a type as the source writes it; the compiler's own form where it cannot be told.
std::string typeName(const std::type_info &type);

} // namespace kvx
