#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace kvx::test {

/// Waits until the condition holds; false when it does not within the limit.
inline bool waitFor(const std::function<bool()> &condition,
    std::chrono::milliseconds limit = std::chrono::seconds(40))
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace kvx::test
