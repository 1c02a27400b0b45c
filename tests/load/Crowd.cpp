#include "Crowd.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <thread>

namespace kvx::test {

Crowd::Crowd(int size)
    : m_size(size)
{
    // All of them come from one address.
    const QString connections = QStringLiteral("--limits.perAddress");
    if (!siteOptions().contains(connections))
        siteOptions() << connections << QStringLiteral("1000");
    static int made = 0;
    for (int i = 0; i < size; ++i) {
        m_emails.append(QStringLiteral("crowd%1@example.com").arg(++made));
        EXPECT_TRUE(site().addUser(m_emails.last(), QStringLiteral("Crowd %1").arg(made)))
            << site().error().toStdString();
    }
}

host::ShellProcess::Account Crowd::account(int index) const
{
    return site().account(m_emails.at(index));
}

QString Crowd::shareProject(int items, const std::vector<int> &members)
{
    host::ShellProcess maker;
    EXPECT_TRUE(maker.start(site().kvx(), site().server(), account(members.front())))
        << maker.error().toStdString();
    const QJsonObject project
        = maker.run(QStringLiteral("new %1 --from %2")
                        .arg(freshName(QStringLiteral("crowd")), billFile(items)));
    EXPECT_EQ(exitOf(project), 0) << errorOf(project).toStdString();
    const QString guid = project.value(QLatin1String("guid")).toString();
    QString levels;
    for (std::size_t i = 1; i < members.size(); ++i)
        levels += QStringLiteral(" --set %1=1").arg(m_emails.at(members[i]));
    const QJsonObject given = maker.run(QStringLiteral("permissions ") + guid + levels);
    EXPECT_EQ(exitOf(given), 0) << errorOf(given).toStdString();
    return guid;
}

void Crowd::arrive()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_arrived;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_arrived >= m_size; });
}

void Crowd::together(const Work &work)
{
    m_arrived = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < m_size; ++i) {
        threads.emplace_back([this, i, &work] {
            host::ShellProcess shell;
            const bool started = shell.start(site().kvx(), site().server(), account(i));
            EXPECT_TRUE(started) << shell.error().toStdString();
            arrive();
            if (started)
                work(i, shell);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

double quantile(std::vector<double> values, double part)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(
        values.size() - 1, static_cast<std::size_t>(part * static_cast<double>(values.size())))];
}

} // namespace kvx::test
