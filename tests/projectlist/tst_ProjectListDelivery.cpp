#include "ProjectListFixture.h"

#include "support/Watchdog.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QCoreApplication>
#include <QFile>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

using namespace kvx::test;

// How notifications reach the list: from a broker's thread, in their order, whatever is thrown.

namespace {

class ProjectListDelivery : public ProjectListTest {
protected:
    ProjectListDelivery() { makeList({ project("{a}", "A"), project("{b}", "B", "Estimate") }); }
};

long residentPages()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(1).toLong() : 0;
}

} // namespace

TEST_F(ProjectListDelivery, AnExceptionOfAReceiverStaysInside)
{
    int throws = 0;
    const auto fail = [&throws] {
        ++throws;
        throw std::runtime_error("receiver");
    };
    for (const auto signal : { &KVXCWProjectList::beginUpdate, &KVXCWProjectList::endUpdate,
             &KVXCWProjectList::beginChanged, &KVXCWProjectList::changed }) {
        const auto connection = QObject::connect(list, signal, list, fail);
        EXPECT_NO_THROW(list->onNotify(message("Rename", project("{a}", "R"))));
        EXPECT_FALSE(list->isUpdating());
        EXPECT_EQ(record("{a}")->name(), text("R")) << "the message is applied all the same";
        record("{a}")->setName(text("A"));
        QObject::disconnect(connection);
        EXPECT_TRUE(
            host.logged(40000, text("Deal project list message failed: exception=receiver")));
        for (const LogRecord &line : host.takeLog())
            EXPECT_TRUE(line.function.contains(text("KVXCWProjectListImpl::onNotify(")));
    }
    EXPECT_EQ(throws, 4);
    open("{a}");
    FakeSynchronizer::duringSync = [] { throw 5; };
    EXPECT_NO_THROW(list->onNotify(message("Save", project("{a}", "A"))));
    EXPECT_FALSE(list->isUpdating());
    EXPECT_TRUE(host.logged(40000, text("Deal project list message failed: exception=unknown")));
}

TEST_F(ProjectListDelivery, TheBrokersThreadWaitsUntilTheMessageIsApplied)
{
    std::atomic<bool> applied { false };
    std::atomic<bool> seenApplied { false };
    std::atomic<bool> returned { false };
    QThread *const hostThread = QThread::currentThread();
    QObject::connect(list, &KVXCWProjectList::changed, list, [&] {
        EXPECT_EQ(QThread::currentThread(), hostThread);
        applied = true;
    });
    std::thread broker([&] {
        emit host.messager->notify(message("Rename", project("{a}", "R")));
        seenApplied = applied.load();
        returned = true;
    });
    EXPECT_TRUE(waitUntil([&] { return returned.load(); }));
    broker.join();
    EXPECT_TRUE(seenApplied);
    EXPECT_EQ(record("{a}")->name(), text("R"));
}

TEST_F(ProjectListDelivery, MessagesAreAppliedInTheirOrder)
{
    QList<QJsonObject> messages;
    QStringList names;
    for (int number = 0; number < 200; ++number) {
        const QByteArray name = QByteArray::number(number);
        messages.append(message("Rename", project("{a}", name.constData())));
        names.append(text(name));
    }
    QStringList seen;
    QObject::connect(
        list, &KVXCWProjectList::changed, list, [&] { seen.append(record("{a}")->name()); });
    EXPECT_TRUE(host.notifyFromBroker(messages));
    EXPECT_EQ(seen, names);
}

// Three broker threads, each waiting for its message, and three slots on one stack.
TEST_F(ProjectListDelivery, AReceiverMayRunALoopInWhichMoreMessagesArrive)
{
    using List = KVXCWProjectList;
    const auto rename = [](const char *name) { return message("Rename", project("{a}", name)); };
    for (const auto signal :
        { &List::beginUpdate, &List::endUpdate, &List::beginChanged, &List::changed }) {
        QList<QJsonObject> toCome { rename("R2"), rename("R3") };
        int depth = 0;
        int deepest = 0;
        const auto connection = QObject::connect(list, signal, list, [&] {
            if (toCome.isEmpty())
                return;
            deepest = std::max(deepest, ++depth);
            EXPECT_TRUE(host.notifyFromBroker(toCome.takeFirst()));
            --depth;
        });
        EXPECT_TRUE(host.notifyFromBroker(rename("R1")));
        QObject::disconnect(connection);
        EXPECT_EQ(deepest, 2);
        EXPECT_FALSE(list->isUpdating());
        const QStringList seen = takeSignals();
        EXPECT_EQ(seen.count(text("beginUpdate")), 3);
        EXPECT_EQ(seen.count(text("endUpdate")), 3);
        EXPECT_GE(seen.count(text("changed")), 1);
        const QStringList lines = takeInfos();
        for (const char *name : { "R1", "R2", "R3" })
            EXPECT_EQ(lines.count(
                          text("rename project successed: projectGUID={a}, newName=") + text(name)),
                1)
                << name;
    }
}

TEST_F(ProjectListDelivery, ASynchronisationMayRunALoopInWhichMoreMessagesArrive)
{
    open("{a}");
    int toCome = 2;
    FakeSynchronizer::duringSync = [&] {
        if (toCome-- > 0) {
            EXPECT_TRUE(host.notifyFromBroker(message("Save", project("{a}", "A"))));
        }
    };
    EXPECT_TRUE(host.notifyFromBroker(message("Save", project("{a}", "A"))));
    EXPECT_EQ(FakeSynchronizer::synced, texts({ "{a}", "{a}", "{a}" }));
    EXPECT_FALSE(list->isUpdating());
    const QStringList seen = takeSignals();
    EXPECT_EQ(seen.count(text("beginUpdate")), 3);
    EXPECT_EQ(seen.count(text("endUpdate")), 3);
    EXPECT_EQ(seen.last(), text("changed"));
}

// The end of the list must free a broker thread that waits for it, and nothing may be called on
// the dead object.
TEST_F(ProjectListDelivery, TheEndOfTheListFreesAWaitingBrokerThread)
{
    const int rounds = qEnvironmentVariableIsSet("KVX_TEST_LONG") ? 20000 : 200;
    Watchdog::allow(300);
    for (int round = 0; round < rounds; ++round) {
        makeList({ project("{a}", "A") });
        std::atomic<bool> emitting { false };
        std::thread broker([&] {
            emitting = true;
            emit host.messager->notify(message("Rename", project("{a}", "R")));
        });
        while (!emitting)
            std::this_thread::yield();
        KVXCollaborator::getInstance()->setProjectListManager(nullptr);
        broker.join();
        QCoreApplication::processEvents();
    }
    list = nullptr;
}

TEST_F(ProjectListDelivery, TenThousandMessagesKeepTheMemoryBounded)
{
    makeList({ project("{a}", "A"), project("{b}", "B"), project("{c}", "C") });
    open("{c}");
    const QJsonObject users = withUsers({ collaborator("anna@example.com", 1) });
    const QList<QJsonObject> round { message("Save", project("{a}", "A")),
        message("Save", project("{c}", "C")), message("Rename", project("{a}", "A2")),
        message("Update", project("{b}", "B")),
        message("UpdateAddionalInfo", json(R"({"ProjectGUID":"{a}","AdditionalInfo":{"a":1}})")),
        message("New", project("{n}", "N", "Tender", users)),
        message("Remove", project("{n}", "N")),
        message("PermissionChanged", QJsonArray { project("{b}", "B") }),
        message("PermissionChanged", QJsonArray { project("{b}", "B", "Tender", users) }),
        message("PermissionChanged", QJsonArray { project("{c}", "C", "Tender", users) }) };
    const auto deliver = [&](int rounds) {
        for (int number = 0; number < rounds; ++number) {
            for (const QJsonObject &one : round)
                list->onNotify(one);
            takeSignals();
            host.takeLog();
            FakeSynchronizer::synced.clear();
        }
    };
    deliver(200);
    const long before = residentPages();
    deliver(1000);
    EXPECT_EQ(recordCount(), 3);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(residentPages() - before, 1024) << "pages of memory gained"; // 4 MiB
#else
    Q_UNUSED(before) // the sanitizers keep freed memory; they report what leaks themselves
#endif
}
