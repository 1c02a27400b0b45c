#include "ProjectListFixture.h"

using namespace kvx::test;

// An open project is remembered by its record, which a synchronisation, a removal or a loss of
// permission deletes. Whatever comes next must find a record that lives, or none. The address
// sanitizer watches.

namespace {

class OpenProjects : public ProjectListTest {
protected:
    OpenProjects()
    {
        makeList({ listed(), project("{b}", "B") });
        open("{a}");
    }

    static QJsonObject listed()
    {
        return project(
            "{a}", "A", "Tender", withUsers({ collaborator("anna@example.com", 1, 2, 3, 4) }));
    }
    static QJsonObject permissions(const QList<QJsonObject> &users)
    {
        return message(
            "PermissionChanged", QJsonArray { project("{a}", "A", "Tender", withUsers(users)) });
    }

    // Everything that looks the open project up.
    void useOpenProject()
    {
        notify(message("Save", listed()));
        notify(message("Update", listed()));
        notify(message("Remove", listed()));
        notify(permissions({ collaborator("anna@example.com", 1) }));
        notify(permissions({}));
        EXPECT_TRUE(list->syncProjectList());
        EXPECT_TRUE(list->closeProject(text("{a}")));
    }
};

} // namespace

TEST_F(OpenProjects, PointAtTheNewRecordAfterASynchronisation)
{
    EXPECT_TRUE(list->syncProjectList());
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Opened);
    EXPECT_EQ(record("{b}")->status(), KVXProjectInfo::Closed);
    EXPECT_TRUE(notify(permissions({ collaborator("anna@example.com", 0, 2, 3, 4) }))
                    .contains(text("permissionChanged {a} 0:1>0 1:2>2 2:3>3 3:4>4")));
    list->closeProject(text("{a}"));
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Closed);
}

TEST_F(OpenProjects, ThatAreNoLongerListedCanStillBeClosed)
{
    answerList({});
    EXPECT_TRUE(list->syncProjectList());
    EXPECT_TRUE(list->closeProject(text("{a}")));
    EXPECT_EQ(FakeSynchronizer::destroyed, 1);
}

TEST_F(OpenProjects, AreListedAgainAsOpen)
{
    answerList({});
    EXPECT_TRUE(list->syncProjectList());
    answerList({ listed() });
    EXPECT_TRUE(list->syncProjectList());
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Opened);
}

TEST_F(OpenProjects, SurviveTheLossOfTheirPermission)
{
    notify(permissions({}));
    EXPECT_EQ(record("{a}"), nullptr);
    useOpenProject();
}

TEST_F(OpenProjects, ThatAreGivenBackBeforeTheyAreClosedAreOpen)
{
    notify(permissions({}));
    EXPECT_EQ(notify(permissions({ collaborator("anna@example.com", 1) }))
                  .filter(text("projectOrPermNew")),
        texts({ "projectOrPermNew {a} false" }));
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Opened);
    EXPECT_TRUE(notify(permissions({ collaborator("anna@example.com", 0) }))
                    .contains(text("permissionChanged {a} 0:1>0 1:1>1 2:1>1 3:1>1")));
    useOpenProject();
}

TEST_F(OpenProjects, WithoutARecordCountAsHavingHadNoPermission)
{
    list->clearProject(text("{a}"));
    // A record that comes without an open one to compare with: appended twice, removed once.
    const QJsonObject content = listed();
    notify(message("New", content));
    notify(message("New", content));
    notify(permissions({}));
    EXPECT_NE(record("{a}"), nullptr);
    EXPECT_TRUE(notify(permissions({ collaborator("anna@example.com", 1, 2, 3, 4) }))
                    .contains(text("permissionChanged {a} 0:-1>1 1:-1>2 2:-1>3 3:-1>4")));
    useOpenProject();
}

TEST_F(OpenProjects, SurviveClearing)
{
    EXPECT_TRUE(list->clearProject(text("{a}")));
    useOpenProject();
    EXPECT_EQ(FakeSynchronizer::destroyed, FakeSynchronizer::created);
}

TEST_F(OpenProjects, AreOpenedAgainOverTheOlderEntry)
{
    EXPECT_TRUE(list->syncProjectList());
    open("{a}");
    EXPECT_EQ(FakeSynchronizer::created, 1);
    useOpenProject();
}

TEST_F(OpenProjects, CanBeClosedByWhatTheirSynchronisationTriggers)
{
    FakeSynchronizer::duringSync = [this] {
        FakeSynchronizer::duringSync = nullptr;
        list->clearProject(text("{a}"));
    };
    notify(message("Save", listed()));
    useOpenProject();
}

TEST_F(OpenProjects, TheSynchroniserOfAProjectThatIsClosedIsNotMadeAgain)
{
    list->closeProject(text("{a}"));
    notify(message("Save", listed()));
    EXPECT_EQ(FakeSynchronizer::created, 1);
    EXPECT_TRUE(FakeSynchronizer::synced.isEmpty());
}
