#pragma once

#include "support/FakeHost.h"

#include <gtest/gtest.h>
#include <ostream>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace kvx::test {

inline QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

/// A host with one manager, whose signals the derived class notes as texts.
class ManagerTest : public testing::Test {
protected:
    /// What the manager's log lines name: a part of each function's signature, and the file.
    ManagerTest(const char *functions, const char *source);

    void noteSignal(const QString &text) { m_signals += text; }
    /// What was noted since the last call, in the order of emission.
    QStringList takeSignals();
    /// Delivers the message as the broker does and returns the signals that it led to.
    QStringList notify(const QJsonObject &message);
    /// Texts of the log lines since the last call; each must be an INFO line of the manager.
    QStringList takeInfos();
    /// Forgets the requests and log lines of the beginning.
    void forget();

private:
    const QString m_functions;
    const QString m_source;
    QStringList m_signals;

protected:
    FakeHost host; ///< last: the manager that it ends may emit still
};

} // namespace kvx::test
