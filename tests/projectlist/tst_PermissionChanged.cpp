#include "ProjectListFixture.h"

using namespace kvx::test;

namespace {

class PermissionChanged : public ProjectListTest {
protected:
    PermissionChanged()
    {
        const QJsonObject users = withUsers(
            { collaborator("anna@example.com", 1, 2, 3, 4), collaborator("ben@example.com", 1) });
        makeList({ project("{a}", "A", "Tender", users), project("{b}", "B", "Estimate", users) });
    }

    static QJsonObject changed(const char *guid, const QList<QJsonObject> &users)
    {
        return project(guid, "New name", "Tender", withUsers(users));
    }
    QStringList permissionsChanged(const QList<QJsonObject> &records)
    {
        QJsonArray array;
        for (const QJsonObject &object : records)
            array.append(object);
        return notify(message("PermissionChanged", array));
    }
    QStringList infos(const char *guid)
    {
        return texts({ "recv project list message: msgCommand=PermissionChanged" })
            + QStringList { text("Deal permission changed finished: projectGUID=") + text(guid) };
    }

    const KVXUser anna { text("Anna"), text("anna@example.com") };
};

QStringList bracketed(std::initializer_list<const char *> between = {})
{
    return texts({ "beginUpdate", "endUpdate", "beginChanged" }) + texts(between)
        + texts({ "changed" });
}

} // namespace

TEST_F(PermissionChanged, OfAClosedProjectReplacesItsPermissions)
{
    EXPECT_EQ(permissionsChanged({ changed("{a}", { collaborator("anna@example.com", 0, -1) }) }),
        bracketed({ "permissionChanged {a}" }));
    EXPECT_EQ(record("{a}")->permission(anna, KVXProjectInfo::ProjectRW), 0);
    EXPECT_EQ(record("{a}")->permission(anna, KVXProjectInfo::Money), -1);
    EXPECT_EQ(record("{a}")->userPermissions().size(), 1);
    EXPECT_EQ(record("{a}")->name(), text("A")) << "only the permissions are taken";
    EXPECT_EQ(takeInfos(), infos("{a}"));
}

TEST_F(PermissionChanged, OfAnOpenProjectTellsOldAndNewValues)
{
    open("{a}");
    EXPECT_EQ(
        permissionsChanged({ changed("{a}", { collaborator("anna@example.com", 0, 12, 13, 14) }) }),
        bracketed({ "permissionChanged {a} 0:1>0 1:2>12 2:3>13 3:4>14" }));
    EXPECT_EQ(record("{a}")->permission(anna, KVXProjectInfo::Report), 14);
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Opened);

    QJsonObject partly = json(R"({"Name":"Anna","Email":"anna@example.com",
        "Permission":[{"ProjectRW":1}]})");
    EXPECT_EQ(permissionsChanged({ changed("{a}", { partly }) }),
        bracketed({ "permissionChanged {a} 0:0>1 1:12>-1 2:13>-1 3:14>-1" }));
}

TEST_F(PermissionChanged, AReceiverMayChangeTheMapItIsGiven)
{
    open("{a}");
    QObject::connect(list, &KVXCWProjectList::permissionChanged, list,
        [](const QString &, QMap<int, QPair<int, int>> &changes) {
            EXPECT_EQ(changes.keys(), (QList<int> { 0, 1, 2, 3 }));
            changes.clear();
        });
    permissionsChanged({ changed("{a}", { collaborator("anna@example.com", 0) }) });
}

TEST_F(PermissionChanged, AnAdministratorSeesTheNewValueOnBothSides)
{
    open("{a}");
    host.setUser(text("Anna"), text("anna@example.com"), json(R"({"Administrator":1})"));
    EXPECT_EQ(
        permissionsChanged({ changed("{a}", { collaborator("anna@example.com", 9, 9, 9, 0) }) }),
        bracketed({ "permissionChanged {a} 0:9>9 1:9>9 2:9>9 3:0>0" }));
}

TEST_F(PermissionChanged, LosingAccessRemovesTheProject)
{
    EXPECT_EQ(permissionsChanged({ changed("{a}", { collaborator("ben@example.com", 1) }) }),
        bracketed({ "projectPermissionRemoved {a}" }));
    EXPECT_EQ(record("{a}"), nullptr);
    EXPECT_EQ(takeInfos(), infos("{a}"));

    EXPECT_EQ(permissionsChanged({ changed("{b}", { collaborator("anna@example.com", -1) }) }),
        bracketed({ "projectPermissionRemoved {b}" }));
    EXPECT_EQ(recordCount(), 0);
}

TEST_F(PermissionChanged, LosingAccessToAnOpenProjectAlsoAsksToCloseIt)
{
    open("{a}");
    EXPECT_EQ(permissionsChanged({ changed("{a}", {}) }),
        bracketed({ "projectPermissionRemoved {a}", "projCloseByPermRemoved {a}" }));
    EXPECT_EQ(record("{a}"), nullptr);
}

// The server puts a role's members into the record itself, so the record alone decides.
TEST_F(PermissionChanged, AnAdministratorWithoutAnEntryLosesTheProjectToo)
{
    host.setUser(text("Anna"), text("anna@example.com"), json(R"({"Administrator":1})"));
    EXPECT_EQ(
        permissionsChanged({ changed("{a}", {}) }), bracketed({ "projectPermissionRemoved {a}" }));
}

TEST_F(PermissionChanged, GainingAccessAppendsTheProject)
{
    EXPECT_EQ(permissionsChanged({ changed("{n}", { collaborator("anna@example.com", 0) }) }),
        bracketed({ "projectOrPermNew {n} false" }));
    EXPECT_EQ(record("{n}")->name(), text("New name"));
    EXPECT_EQ(takeInfos(), infos("{n}"));
}

TEST_F(PermissionChanged, OfAProjectThatStaysHiddenDoesNothing)
{
    EXPECT_EQ(permissionsChanged({ changed("{n}", { collaborator("ben@example.com", 1) }) }),
        bracketed());
    host.setUser(text("Anna"), text("anna@example.com"), json(R"({"Administrator":1})"));
    EXPECT_EQ(permissionsChanged({ changed("{n}", {}) }), bracketed());
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(PermissionChanged, AWholeArrayIsToldOnceUnderItsLastProject)
{
    open("{a}");
    open("{b}");
    EXPECT_EQ(permissionsChanged({ changed("{a}", {}),
                  changed("{b}", { collaborator("anna@example.com", 0, 2, 3, 4) }) }),
        bracketed({ "permissionChanged {b} 0:1>0 1:2>2 2:3>3 3:4>4", "projectPermissionRemoved {b}",
            "projCloseByPermRemoved {b}" }));
    EXPECT_EQ(record("{a}"), nullptr);
    EXPECT_NE(record("{b}"), nullptr);
    EXPECT_EQ(takeInfos(), infos("{b}"));
}

TEST_F(PermissionChanged, AWholeArrayTellsNoValuesOfALastProjectThatIsClosed)
{
    open("{a}");
    EXPECT_EQ(permissionsChanged({ changed("{a}", {}),
                  changed("{b}", { collaborator("anna@example.com", 0, 2, 3, 4) }) }),
        bracketed({ "permissionChanged {b}", "projectPermissionRemoved {b}",
            "projCloseByPermRemoved {b}" }));
    EXPECT_EQ(record("{a}"), nullptr);
    EXPECT_EQ(record("{b}")->permission(anna, KVXProjectInfo::ProjectRW), 0);
}

TEST_F(PermissionChanged, AWholeArrayTellsAlsoWhatIsNew)
{
    open("{a}");
    EXPECT_EQ(permissionsChanged({ changed("{n}", { collaborator("anna@example.com", 1) }),
                  changed("{a}", {}), changed("{hidden}", {}) }),
        bracketed({ "projectPermissionRemoved {hidden}", "projCloseByPermRemoved {hidden}",
            "projectOrPermNew {hidden} false" }));
}

TEST_F(PermissionChanged, TheLastOpenProjectOfAnArrayGivesTheValues)
{
    open("{a}");
    open("{b}");
    EXPECT_EQ(permissionsChanged({ changed("{a}", { collaborator("anna@example.com", 5, 5, 5, 5) }),
                  changed("{b}", { collaborator("anna@example.com", 6, 6, 6, 6) }) }),
        bracketed({ "permissionChanged {b} 0:1>6 1:2>6 2:3>6 3:4>6" }));
}

TEST_F(PermissionChanged, AnEmptyArrayOrNoArrayDoesNothing)
{
    for (const QJsonValue &content :
        { QJsonValue(QJsonArray()), QJsonValue(), QJsonValue(changed("{a}", {})) }) {
        EXPECT_EQ(notify(message("PermissionChanged", content)), bracketed());
        EXPECT_EQ(takeInfos(), infos(""));
    }
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(PermissionChanged, TheSameProjectTwiceInOneArray)
{
    EXPECT_EQ(permissionsChanged(
                  { changed("{a}", {}), changed("{a}", { collaborator("anna@example.com", 1) }) }),
        bracketed({ "projectPermissionRemoved {a}", "projectOrPermNew {a} false" }));
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(PermissionChanged, WithoutAUserNobodyHasAccess)
{
    host.removeUser();
    EXPECT_EQ(permissionsChanged({ changed("{a}", { collaborator("", 1) }) }),
        bracketed({ "projectPermissionRemoved {a}" }));
}
