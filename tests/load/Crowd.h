#pragma once

#include "team/Team.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

namespace kvx::test {

/// Many estimators at the shared server, each a process with a thread that drives it.
class Crowd {
public:
    /// Makes the accounts.
    explicit Crowd(int size);

    int size() const { return m_size; }
    QString email(int index) const { return m_emails.at(index); }
    host::ShellProcess::Account account(int index) const;
    /// One of them makes a project with so many items in chapter 01, all may write it; its GUID.
    QString shareProject(int items, const std::vector<int> &members);

    using Work = std::function<void(int index, host::ShellProcess &shell)>;
    /// Logs everybody in, lets all begin together, ends the processes; returns when all are done.
    void together(const Work &work);

private:
    void arrive();

    const int m_size;
    QStringList m_emails;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_arrived = 0; ///< guarded by m_mutex
};

/// The value below which so much of them lies: 0.5, 0.99.
double quantile(std::vector<double> values, double part);

} // namespace kvx::test
