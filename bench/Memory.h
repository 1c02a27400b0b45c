#pragma once

namespace kvx::bench {

/// How much more memory this process needed at its worst moment than when the object was made.
class MemoryPeak {
public:
    MemoryPeak();
    /// In MB.
    double growth() const;

private:
    double m_before;
};

} // namespace kvx::bench
