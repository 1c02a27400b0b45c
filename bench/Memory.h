#pragma once

#include <QString>

namespace kvx::bench {

/// How much memory a process needs at its worst moment from when the object was made.
class MemoryPeak {
public:
    MemoryPeak(); ///< of this process
    explicit MemoryPeak(qint64 process);

    /// Since the object was made, in MB.
    double growth() const;
    /// In all, in MB.
    double most() const;

private:
    void begin();

    const QString m_folder;
    double m_before = 0;
};

} // namespace kvx::bench
