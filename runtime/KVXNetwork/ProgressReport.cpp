#include "ProgressReport.h"

namespace kvx {

namespace {

const std::chrono::milliseconds ReportInterval(40); // 25 a second

} // namespace

ProgressReport::ProgressReport(void *receiver, KVXNetwork::ProgressFunction function)
    : m_receiver(receiver)
    , m_function(function)
{
}

void ProgressReport::moved(qint64 done, qint64 total)
{
    if (!m_function || done == m_done)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (now < m_next)
        return;
    m_next = now + ReportInterval;
    report(done, total);
}

void ProgressReport::finish(qint64 total)
{
    if (m_function && (m_done != total || m_total != total))
        report(total, total);
}

void ProgressReport::report(qint64 done, qint64 total)
{
    m_done = done;
    m_total = total;
    m_function(m_receiver, done, total);
}

} // namespace kvx
