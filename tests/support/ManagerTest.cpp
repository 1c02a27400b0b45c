#include "ManagerTest.h"

namespace kvx::test {

ManagerTest::ManagerTest(const char *functions, const char *source)
    : m_functions(text(functions))
    , m_source(text(source))
{
}

QStringList ManagerTest::takeSignals()
{
    QStringList taken;
    taken.swap(m_signals);
    return taken;
}

QStringList ManagerTest::notify(const QJsonObject &message)
{
    takeSignals();
    EXPECT_TRUE(host.notifyFromBroker(message));
    return takeSignals();
}

QStringList ManagerTest::takeInfos()
{
    QStringList texts;
    for (const LogRecord &line : host.takeLog()) {
        EXPECT_EQ(line.level, 20000) << line.text.toStdString();
        EXPECT_EQ(line.source, m_source);
        EXPECT_TRUE(line.function.contains(m_functions)) << line.function.toStdString();
        texts.append(line.text);
    }
    return texts;
}

void ManagerTest::forget()
{
    host.network.takeRequests();
    host.takeLog();
}

} // namespace kvx::test
