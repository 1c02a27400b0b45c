#include "ProjectListFixture.h"

#include <functional>

using namespace kvx::test;

// Receivers of every signal call back into the list. Nothing may hang (the watchdog sees to it)
// and no record may be used that is gone (the address sanitizer does).

namespace {

using List = KVXCWProjectListImpl;

struct Call {
    const char *name;
    std::function<void(List &)> run;
};

const std::vector<Call> &calls()
{
    static const std::vector<Call> all {
        { "getters",
            [](List &list) {
                list.getProjectInfoByGUID(text("{a}"));
                list.getProjectInfo(text("A"), Tender);
                list.existsProject(text("A"));
            } },
        { "syncProjectList", [](List &list) { list.syncProjectList(); } },
        { "closeProject", [](List &list) { list.closeProject(text("{a}")); } },
        { "closeProject of another", [](List &list) { list.closeProject(text("{b}")); } },
        { "removeProject", [](List &list) { list.removeProject(text("{a}")); } },
        { "openProject", [](List &list) { list.openProject(text("{a}")); } },
        { "clearProject", [](List &list) { list.clearProject(text("{a}")); } },
        { "fetchProject", [](List &list) { list.fetchProject(text("{a}")); } },
        { "renameProject",
            [](List &list) { list.renameProject(text("A"), text("B"), text("{a}")); } },
        { "onNotify", [](List &list) { list.onNotify(message("Save", project("{a}", "A"))); } },
    };
    return all;
}

class ProjectListReceivers : public ProjectListTest {
protected:
    ProjectListReceivers() { prepare(); }

    void prepare()
    {
        makeList({ mine("{a}"), mine("{b}") });
        host.network.answer(
            text("getproject"), { { text("statuscode"), 1 }, { text("Project"), mine("{a}") } });
        record("{a}")->setProjectState(1);
        record("{b}")->setProjectState(1);
    }
    static QJsonObject mine(const char *guid)
    {
        return project(guid, "A", "Tender", withUsers({ collaborator("anna@example.com", 1) }));
    }

    /// What connects a receiver of one signal.
    struct Signal {
        const char *name;
        void (ProjectListReceivers::*connect)(const Call &);
    };
    static const std::vector<Signal> &signalsOfTheList()
    {
        using I = KVXCWProjectList;
        using T = ProjectListReceivers;
        static const std::vector<Signal> all {
            { "beginUpdate", &T::hook<&I::beginUpdate> },
            { "endUpdate", &T::hook<&I::endUpdate> },
            { "changed", &T::hook<&I::changed> },
            { "beginChanged", &T::hook<&I::beginChanged> },
            { "nameChanged", &T::hook<&I::nameChanged> },
            { "projectClosed", &T::hook<&I::projectClosed> },
            { "projectSaved", &T::hook<&I::projectSaved> },
            { "projectOrPermNew", &T::hook<&I::projectOrPermNew> },
            { "projectRemoved", &T::hook<&I::projectRemoved> },
            { "change2Unpublish", &T::hook<&I::change2Unpublish> },
            { "projCloseByPermRemoved", &T::hook<&I::projCloseByPermRemoved> },
            { "projectPermissionRemoved", &T::hook<&I::projectPermissionRemoved> },
            { "permissionChanged", &T::hook<&I::permissionChanged> },
        };
        return all;
    }

    void connectTo(const std::vector<Signal> &chosen, const Call &call)
    {
        m_receivers = std::make_unique<QObject>();
        for (const Signal &signal : chosen)
            (this->*signal.connect)(call);
    }

    void disconnectAll() { m_receivers.reset(); }

    int m_hooked = 0; ///< calls made from receivers

private:
    // The first emission makes the call; what the call itself emits does not.
    template <auto signal> void hook(const Call &call)
    {
        QObject::connect(list, signal, m_receivers.get(), [this, &call] {
            if (m_calling)
                return;
            m_calling = true;
            ++m_hooked;
            call.run(*list);
            m_calling = false;
        });
    }

    std::unique_ptr<QObject> m_receivers;
    bool m_calling = false;
};

} // namespace

TEST_F(ProjectListReceivers, MayCallBackFromEverySignal)
{
    const std::vector<std::pair<const char *, std::function<void()>>> triggers {
        { "synchronisation", [this] { list->syncProjectList(); } },
        { "closing",
            [this] {
                list->openProject(text("{a}"));
                list->closeProject(text("{a}"));
            } },
        { "renaming", [this] { list->renameProject(text("A"), text("B"), text("{a}")); } },
        { "save",
            [this] {
                list->openProject(text("{a}"));
                notify(message("Save", mine("{a}")));
            } },
        { "rename", [this] { notify(message("Rename", mine("{a}"))); } },
        { "remove", [this] { notify(message("Remove", mine("{a}"))); } },
        { "update", [this] { notify(message("Update", mine("{a}"))); } },
        { "new", [this] { notify(message("New", mine("{n}"))); } },
        { "loss of permission",
            [this] {
                list->openProject(text("{a}"));
                list->openProject(text("{b}"));
                notify(message("PermissionChanged",
                    QJsonArray { mine("{b}"), project("{a}", "A"), mine("{n}") }));
            } },
        { "another kind", [this] { notify({}); } },
    };
    const auto play = [&](const Call &call, const std::vector<Signal> &chosen) {
        int hooked = 0;
        for (const auto &[trigger, run] : triggers) {
            SCOPED_TRACE(std::string(trigger) + ", then " + call.name);
            prepare();
            connectTo(chosen, call);
            m_hooked = 0;
            run();
            hooked += m_hooked;
            EXPECT_FALSE(list->isUpdating());
            // Still whole: each of these walks over the records and the open projects.
            disconnectAll();
            EXPECT_TRUE(list->syncProjectList());
            list->closeProject(text("{a}"));
            list->closeProject(text("{b}"));
            EXPECT_EQ(recordCount(), 2);
        }
        return hooked;
    };
    for (const Call &call : calls()) {
        EXPECT_GT(play(call, signalsOfTheList()), 0) << call.name;
        for (const Signal &signal : signalsOfTheList())
            EXPECT_GT(play(call, { signal }), 0) << call.name << " from " << signal.name;
    }
}

TEST_F(ProjectListReceivers, SeeTheRecordsThatTheSignalIsAbout)
{
    QStringList seen;
    QObject::connect(list, &KVXCWProjectList::projectSaved, list,
        [&](const QString &guid) { seen.append(list->getProjectInfoByGUID(guid)->amount()); });
    QJsonObject saved = mine("{a}");
    saved.insert(text("Amount"), text("77.00"));
    notify(message("Save", saved));
    EXPECT_EQ(seen, texts({ "77.00" }));
}

TEST_F(ProjectListReceivers, MayCloseAProjectWhosePermissionIsGone)
{
    open("{a}");
    QObject::connect(list, &KVXCWProjectList::projCloseByPermRemoved, list,
        [this](const QString &guid) { EXPECT_TRUE(list->closeProject(guid)); });
    notify(message("PermissionChanged", QJsonArray { project("{a}", "A") }));
    EXPECT_EQ(FakeSynchronizer::destroyed, 1);
    EXPECT_EQ(record("{a}"), nullptr);
}

TEST_F(ProjectListReceivers, MaySynchroniseAgainFromWithinASynchronisation)
{
    int depth = 0;
    int deepest = 0;
    QObject::connect(list, &KVXCWProjectList::beginUpdate, list, [&] {
        deepest = std::max(deepest, ++depth);
        if (depth < 5)
            list->syncProjectList();
        --depth;
    });
    EXPECT_TRUE(list->syncProjectList());
    EXPECT_EQ(deepest, 5);
    EXPECT_EQ(recordCount(), 2);
    EXPECT_FALSE(list->isUpdating());
}
