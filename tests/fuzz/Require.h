#pragma once

#include <cstdio>
#include <cstdlib>

namespace kvx::test {

/// Ends the process: the fuzzer keeps the input, and a replay fails.
inline void require(bool holds, const char *what)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

} // namespace kvx::test
