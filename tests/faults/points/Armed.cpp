#include "Armed.h"

#include "support/WaitFor.h"

#include <QFile>
#include <cstdio>
#include <gtest/gtest.h>

namespace kvx::test {

Armed::Armed()
{
    disarm();
}

void Armed::beginStarts() const
{
    qputenv("KVX_FAIL_POINTS", '@' + QFile::encodeName(path("armed")));
    qputenv("KVX_FAIL_POINTS_PASSED", QFile::encodeName(path("passed")));
}

void Armed::endStarts()
{
    qunsetenv("KVX_FAIL_POINTS");
    qunsetenv("KVX_FAIL_POINTS_PASSED");
}

void Armed::arm(const QString &text)
{
    // The same text a second time must count anew; a name that nothing passes makes it another.
    QFile file(path("new"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(QStringLiteral("arming %1=error").arg(++m_armings).toUtf8());
    if (!text.isEmpty())
        file.write(';' + text.toUtf8());
    file.close();
    QFile::remove(path("passed"));
    // In one step, for those who are reading it.
    ASSERT_EQ(std::rename(QFile::encodeName(path("new")).constData(),
                  QFile::encodeName(path("armed")).constData()),
        0);
}

int Armed::passed(const QString &line) const
{
    QFile file(path("passed"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    int count = 0;
    while (!file.atEnd())
        count += file.readLine().trimmed() == line.toUtf8() ? 1 : 0;
    return count;
}

bool Armed::waitFor(const QString &line) const
{
    return kvx::test::waitFor([&] { return passed(line) > 0; }, std::chrono::seconds(20));
}

} // namespace kvx::test
