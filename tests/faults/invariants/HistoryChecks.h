#pragma once

#include "History.h"
#include "Invariant.h"

namespace kvx::test {

/// What the history alone can tell: locks, numbers, time, memory, logs.
class HistoryChecks {
public:
    HistoryChecks(const QVector<Event> &events, const Report &report)
        : m_events(events)
        , m_report(report)
    {
    }
    void run();

private:
    void checkLocks();
    void checkRanges();
    void checkCalls();
    void checkMemory();
    void checkLogs();

    const QVector<Event> &m_events;
    const Report &m_report;
};

} // namespace kvx::test
