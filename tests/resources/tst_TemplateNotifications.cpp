#include "TemplateFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonArray>
#include <QThread>
#include <memory>
#include <stdexcept>
#include <thread>

using namespace kvx::test;

namespace {

class TemplateNotifications : public TemplateTest {
protected:
    TemplateNotifications()
    {
        QObject::connect(&templates, &KVXReportTemplateMgr::templateInfoChanged, &templates,
            [this](QList<KVXTemplateInfo> &infos) {
                changes.append(infos);
                thread = QThread::currentThread();
            });
    }

    static QJsonObject update(const QJsonArray &infos, const char *from = "ben@example.com")
    {
        return { { QStringLiteral("notifymsg_type"), QStringLiteral("notifymsg_reportTemplate") },
            { QStringLiteral("notifymsg_from"), QLatin1String(from) },
            { QStringLiteral("notifymsg_to"), QString() },
            { QStringLiteral("Command"), QStringLiteral("Update") },
            { QStringLiteral("notifymsg_content"),
                QJsonObject { { QStringLiteral("Command"), QStringLiteral("Update") },
                    { QStringLiteral("reportTemplateArray"), infos } } } };
    }

    QList<QList<KVXTemplateInfo>> changes;
    QThread *thread = nullptr;
};

} // namespace

TEST_F(TemplateNotifications, anUpdateIsToldWithAllItsTemplatesOnTheHostsThread)
{
    QJsonObject second = infoObject();
    second.insert(QStringLiteral("templateID"), QStringLiteral("t2"));
    host.notifyFromBroker(update({ infoObject(), second }));
    ASSERT_EQ(changes.size(), 1);
    ASSERT_EQ(changes[0].size(), 2);
    EXPECT_EQ(fields(changes[0][0]), infoFields);
    EXPECT_EQ(changes[0][1].templateID, QStringLiteral("t2"));
    EXPECT_EQ(thread, QThread::currentThread());
    expectNoRequest(host);
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST_F(TemplateNotifications, anUpdateWithoutTemplatesIsToldAsAnEmptyList)
{
    QJsonObject bare = update({});
    bare.insert(QStringLiteral("notifymsg_content"), QStringLiteral("no object"));
    host.notifyFromBroker({ update({}), bare });
    ASSERT_EQ(changes.size(), 2);
    EXPECT_TRUE(changes[0].isEmpty());
    EXPECT_TRUE(changes[1].isEmpty());
}

TEST_F(TemplateNotifications, theOwnUpdatesAreToldToo)
{
    host.notifyFromBroker(update({}, "anna@example.com"));
    EXPECT_EQ(changes.size(), 1);
}

TEST_F(TemplateNotifications, otherKindsAndCommandsAreIgnored)
{
    const auto with = [](const char *key, const QJsonValue &value) {
        QJsonObject message = update({ infoObject() });
        message.insert(QLatin1String(key), value);
        return message;
    };
    host.notifyFromBroker({
        with("notifymsg_type", QStringLiteral("notifymsg_projectlist")),
        with("notifymsg_type", QStringLiteral("notifymsg_reporttemplate")),
        with("notifymsg_type", 5),
        with("Command", QStringLiteral("New")),
        with("Command", QStringLiteral("update")),
        with("Command", QJsonObject()),
        {},
    });
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(TemplateNotifications, theCommandIsReadFromTheMessageNotFromItsContent)
{
    QJsonObject message = update({});
    message.remove(QStringLiteral("Command"));
    host.notifyFromBroker(message);
    EXPECT_TRUE(changes.isEmpty());
}

TEST_F(TemplateNotifications, theBrokerDoesNotWaitForTheReceiver)
{
    emit host.messager->notify(update({})); // on the same thread: at once
    EXPECT_EQ(changes.size(), 1);

    std::thread broker([this] { emit host.messager->notify(update({})); });
    broker.join(); // no event loop runs meanwhile
    EXPECT_EQ(changes.size(), 1);
    EXPECT_TRUE(waitUntil([this] { return changes.size() == 2; }));
}

TEST_F(TemplateNotifications, aReceiverMayQueryTheTemplatesAndDestroyTheManager)
{
    auto *other = new KVXReportTemplateMgrImpl;
    bool queried = false;
    QObject::connect(other, &KVXReportTemplateMgr::templateInfoChanged,
        [&queried, other](QList<KVXTemplateInfo> &infos) {
            queried = other->queryTemplates(infos);
            delete other;
        });
    host.notifyFromBroker(update({ infoObject() }));
    EXPECT_TRUE(queried);
}

TEST_F(TemplateNotifications, anExceptionOfAReceiverStaysInside)
{
    bool named = true;
    QObject::connect(&templates, &KVXReportTemplateMgr::templateInfoChanged, &templates, [&named] {
        if (named)
            throw std::runtime_error("x%1");
        throw 5;
    });
    EXPECT_NO_THROW(templates.onNotify(update({ infoObject() })));
    EXPECT_TRUE(
        host.logged(40000, QStringLiteral("Deal report template message failed: exception=x%1")));
    const QList<LogRecord> lines = host.takeLog();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].function.contains(QLatin1String("KVXReportTemplateMgrImpl::onNotify(")));
    named = false;
    EXPECT_NO_THROW(templates.onNotify(update({})));
    EXPECT_TRUE(host.logged(
        40000, QStringLiteral("Deal report template message failed: exception=unknown")));
    EXPECT_EQ(changes.size(), 2);
}

TEST_F(TemplateNotifications, aMessageForAManagerThatIsGoneIsDropped)
{
    auto other = std::make_unique<KVXReportTemplateMgrImpl>();
    std::thread broker([this] { emit host.messager->notify(update({})); });
    broker.join();
    other.reset();
    EXPECT_TRUE(waitUntil([this] { return changes.size() == 1; }));
}

TEST_F(TemplateNotifications, aManagerIsMadeWithoutAMessagerAndHearsNothing)
{
    KVXCollaborator::getInstance()->setMessager(nullptr);
    host.messager = nullptr;
    const KVXReportTemplateMgrImpl alone;
    expectNoRequest(host);
}
