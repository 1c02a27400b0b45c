#pragma once

#include <new>

namespace kvx {

/// Writes a new manager, owned by the caller, into the slot; null when there is no memory for it
/// or its constructor failed. The caller is foreign code: no exception leaves this.
template <class Manager, class Interface> void writeNewManager(Interface **slot) noexcept
{
    *slot = nullptr;
    try {
        *slot = new (std::nothrow) Manager;
    } catch (...) {
        // The null pointer says it.
    }
}

} // namespace kvx
