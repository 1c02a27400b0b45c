#pragma once

#include <cstdint>
#include <vector>

namespace kvx::test {

/// What a process takes at one moment.
struct ProcessFigures {
    double seconds = 0; ///< of a clock that never goes back
    double memoryMiB = 0;
    double threads = 0;
    double descriptors = 0;
};

ProcessFigures figuresOf(std::int64_t process);

/// MiB a minute, by the straight line through all samples.
double memorySlope(const std::vector<ProcessFigures> &samples);

} // namespace kvx::test
