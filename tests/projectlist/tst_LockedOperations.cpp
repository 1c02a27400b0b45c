#include "ProjectListFixture.h"

#include "support/WaitFor.h"

#include <QSet>
#include <atomic>
#include <chrono>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <memory>
#include <thread>

using namespace kvx::test;

// Who holds the list's lock when, as another thread that wants it sees it.

namespace {

using List = KVXCWProjectListImpl;

constexpr std::chrono::milliseconds Soon { 100 }; // what need not wait is over long before
constexpr std::chrono::seconds Long { 10 };

/// Another thread that takes the lock once.
class Neighbour {
public:
    explicit Neighbour(List &list)
        : m_thread([this, &list] {
            m_started = true;
            list.clearProject(text("{none}"));
            m_through = true;
        })
    {
    }
    ~Neighbour() { m_thread.join(); }
    Neighbour(const Neighbour &) = delete;
    Neighbour &operator=(const Neighbour &) = delete;

    bool getsThrough(std::chrono::milliseconds limit) const
    {
        return waitFor([this] { return m_started.load(); })
            && waitFor([this] { return m_through.load(); }, limit);
    }

private:
    std::atomic<bool> m_started { false };
    std::atomic<bool> m_through { false };
    std::thread m_thread; // last: uses the others
};

class EachLine : public log4cplus::Appender {
public:
    explicit EachLine(std::function<void(const std::string &)> action)
        : m_action(std::move(action))
    {
    }
    ~EachLine() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent &event) override
    {
        m_action(event.getMessage());
    }

private:
    std::function<void(const std::string &)> m_action;
};

class LockedOperations : public ProjectListTest {
protected:
    LockedOperations() { makeList({ mine("{a}"), mine("{b}") }); }
    // A thread that waits still is freed by the end of the operation.
    ~LockedOperations() override { m_neighbours.clear(); }

    static QJsonObject mine(const char *guid)
    {
        return project(guid, "A", "Tender", withUsers({ collaborator("anna@example.com", 1) }));
    }
    bool lockIsFree() { return !m_stuck && !(m_stuck = !neighbour().getsThrough(Long)); }
    bool lockIsHeld() { return !neighbour().getsThrough(Soon); }

    /// Counts the posts of the service at which the test held.
    void atPostOf(const char *service, const std::function<bool()> &test, int *passed)
    {
        host.network.handle(text(service), [test, passed](const QJsonObject &, QJsonObject &reply) {
            *passed += test() ? 1 : 0;
            reply = { { text("statuscode"), 1 }, { text("Project"), mine("{n}") } };
            return true;
        });
    }

    /// Makes the change while another thread is in a synchronisation, which is then refused.
    /// True when the change ended before the synchronisation, which waits so long for it.
    bool overtakesASynchronisation(
        const std::function<void()> &change, std::chrono::milliseconds limit)
    {
        std::atomic<bool> holding { false };
        std::atomic<bool> changed { false };
        bool overtaken = false;
        host.network.handle(
            text("projectlistsynctolocal"), [&](const QJsonObject &, QJsonObject &reply) {
                holding = true;
                overtaken = waitFor([&] { return changed.load(); }, limit);
                reply = { { text("statuscode"), 2 } };
                return true;
            });
        std::thread other([this] { list->syncProjectList(); });
        EXPECT_TRUE(waitFor([&] { return holding.load(); }));
        change();
        changed = true;
        other.join();
        return overtaken;
    }

private:
    Neighbour &neighbour()
    {
        m_neighbours.push_back(std::make_unique<Neighbour>(*list));
        return *m_neighbours.back();
    }

    std::vector<std::unique_ptr<Neighbour>> m_neighbours;
    bool m_stuck = false; // told once, instead of after a long wait each time
};

} // namespace

TEST_F(LockedOperations, ASynchronisationHoldsTheLockAcrossItsPostAndSignals)
{
    int held = 0;
    atPostOf(
        "projectlistsynctolocal", [this] { return lockIsHeld(); }, &held);
    QObject::connect(list, &List::beginUpdate, list, [&] { held += lockIsHeld() ? 1 : 0; });
    QObject::connect(list, &List::changed, list, [&] { held += lockIsHeld() ? 1 : 0; });
    EXPECT_TRUE(list->syncProjectList());
    EXPECT_EQ(held, 3);
    EXPECT_TRUE(lockIsFree());
}

TEST_F(LockedOperations, ASynchronisationThatFailsLetsTheLockGo)
{
    host.network.failPost(text("projectlistsynctolocal"));
    EXPECT_FALSE(list->syncProjectList());
    EXPECT_TRUE(lockIsFree());
    host.network.answer(text("projectlistsynctolocal"), json(R"({"statuscode":2})"));
    EXPECT_FALSE(list->syncProjectList());
    EXPECT_TRUE(lockIsFree());
    host.unconfigure();
    EXPECT_FALSE(list->syncProjectList());
    EXPECT_TRUE(lockIsFree());
}

TEST_F(LockedOperations, ClosingHoldsTheLockFromTheEndOfTheManagersToTheSignal)
{
    open("{a}");
    int held = 0;
    FakeSynchronizer::atEnd = [&] { held += lockIsHeld() ? 1 : 0; };
    atPostOf(
        "closeproject", [this] { return lockIsHeld(); }, &held);
    QObject::connect(list, &List::projectClosed, list, [&] { held += lockIsHeld() ? 1 : 0; });
    EXPECT_TRUE(list->closeProject(text("{a}")));
    EXPECT_EQ(held, 3);
    EXPECT_TRUE(lockIsFree());
    FakeSynchronizer::atEnd = nullptr;

    host.network.failPost(text("closeproject"));
    EXPECT_FALSE(list->closeProject(text("{a}")));
    EXPECT_TRUE(lockIsFree());
}

TEST_F(LockedOperations, TheOtherCommandsPostWithoutTheLock)
{
    for (const Command &command : commands()) {
        if (text(command.service) == text("closeproject"))
            continue;
        SCOPED_TRACE(command.service);
        int free = 0;
        atPostOf(
            command.service, [this] { return lockIsFree(); }, &free);
        atPostOf(
            "getproject", [this] { return lockIsFree(); }, &free);
        host.network.takeRequests();
        command.run(*list);
        EXPECT_GE(free, 1);
        EXPECT_EQ(free, host.network.takeServices().size());
    }
}

TEST_F(LockedOperations, OpeningMakesTheSynchroniserWithoutTheLock)
{
    int free = 0;
    FakeSynchronizer::atCreation = [&] { free += lockIsFree() ? 1 : 0; };
    open("{a}");
    EXPECT_EQ(free, 1);
}

TEST_F(LockedOperations, ANotificationLetsTheLockGoBeforeItSynchronisesLogsAndSignals)
{
    QSet<QString> seen;
    const auto check = [&](const QString &where) {
        EXPECT_TRUE(lockIsFree()) << where.toStdString();
        seen.insert(where);
    };
    const auto checkAt = [&](const char *name) { return [&check, name] { check(text(name)); }; };
    QObject::connect(list, &List::beginUpdate, list, checkAt("beginUpdate"));
    QObject::connect(list, &List::endUpdate, list, checkAt("endUpdate"));
    QObject::connect(list, &List::beginChanged, list, checkAt("beginChanged"));
    QObject::connect(list, &List::changed, list, checkAt("changed"));
    QObject::connect(list, &List::projectSaved, list, checkAt("projectSaved"));
    QObject::connect(list, &List::projectRemoved, list, checkAt("projectRemoved"));
    QObject::connect(list, &List::change2Unpublish, list, checkAt("change2Unpublish"));
    QObject::connect(list, &List::projectOrPermNew, list, checkAt("projectOrPermNew"));
    QObject::connect(list, &List::permissionChanged, list, checkAt("permissionChanged"));
    QObject::connect(list, &List::projCloseByPermRemoved, list, checkAt("projCloseByPermRemoved"));
    QObject::connect(
        list, &List::projectPermissionRemoved, list, checkAt("projectPermissionRemoved"));
    FakeSynchronizer::duringSync = [&] { check(text("syncLogs")); };
    int lines = 0;
    log4cplus::Logger::getInstance("kvx.test")
        .addAppender(log4cplus::SharedAppenderPtr(new EachLine([&](const std::string &line) {
            ++lines;
            check(QString::fromStdString(line).section(u':', 0, 0));
        })));

    open("{a}");
    record("{b}")->setProjectState(1);
    for (const QJsonObject &one : { message("Save", mine("{a}")), message("Rename", mine("{b}")),
             message("Update", mine("{b}")), message("UpdateAddionalInfo", mine("{b}")),
             message("Remove", mine("{b}")), message("New", mine("{n}")),
             message("PermissionChanged",
                 QJsonArray { mine("{p}"), mine("{n}"), project("{a}", "A") }) })
        list->onNotify(one);

    for (const char *where : { "beginUpdate", "endUpdate", "beginChanged", "changed",
             "projectSaved", "projectRemoved", "change2Unpublish", "projectOrPermNew",
             "permissionChanged", "projCloseByPermRemoved", "projectPermissionRemoved", "syncLogs",
             "rename project successed", "remvoe project successed",
             "remvoe project info successed", "update new project info successed",
             "Update addional info successed", "Deal permission changed finished" })
        EXPECT_TRUE(seen.contains(text(where))) << where;
    EXPECT_EQ(lines, 7 + 9);
}

TEST_F(LockedOperations, EveryChangeOfTheListWaitsForASynchronisation)
{
    open("{b}");
    host.network.answer(
        text("getproject"), { { text("statuscode"), 1 }, { text("Project"), mine("{n}") } });
    const std::vector<std::pair<const char *, std::function<void()>>> changes {
        { "Save", [this] { list->onNotify(message("Save", mine("{a}"))); } },
        { "Rename", [this] { list->onNotify(message("Rename", mine("{a}"))); } },
        { "Update", [this] { list->onNotify(message("Update", mine("{a}"))); } },
        { "UpdateAddionalInfo",
            [this] { list->onNotify(message("UpdateAddionalInfo", mine("{a}"))); } },
        { "New", [this] { list->onNotify(message("New", mine("{n}"))); } },
        { "Remove", [this] { list->onNotify(message("Remove", mine("{n}"))); } },
        { "PermissionChanged, new",
            [this] { list->onNotify(message("PermissionChanged", QJsonArray { mine("{n}") })); } },
        { "PermissionChanged, kept",
            [this] { list->onNotify(message("PermissionChanged", QJsonArray { mine("{n}") })); } },
        { "PermissionChanged, lost",
            [this] {
                list->onNotify(message("PermissionChanged", QJsonArray { project("{n}", "N") }));
            } },
        { "openProject", [this] { list->openProject(text("{a}")); } },
        { "closeProject", [this] { list->closeProject(text("{b}")); } },
        { "fetchProject", [this] { list->fetchProject(text("{n}")); } },
        { "clearProject", [this] { list->clearProject(text("{n}")); } },
    };
    for (const auto &[name, change] : changes)
        EXPECT_FALSE(overtakesASynchronisation(change, Soon)) << name;
}

TEST_F(LockedOperations, TheOtherCommandsDoNotWaitForASynchronisation)
{
    const QSet<QString> waiting { text("openproject"), text("closeproject"), text("newproject"),
        text("addendumproject") };
    EXPECT_TRUE(overtakesASynchronisation(
        [&] {
            for (const Command &command : commands()) {
                if (!waiting.contains(text(command.service)))
                    command.run(*list);
            }
        },
        Long));
}
