#include "messaging/TypeName.h"

#if !defined(_WIN32)
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#endif

namespace kvx {

std::string typeName(const std::type_info &type)
{
#if defined(_WIN32)
    return type.name(); // readable as it is
#else
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr), &std::free);
    return name ? name.get() : type.name();
#endif
}

} // namespace kvx
