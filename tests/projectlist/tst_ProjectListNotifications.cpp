#include "ProjectListFixture.h"

using namespace kvx::test;

namespace {

class ProjectListNotifications : public ProjectListTest {
protected:
    ProjectListNotifications()
    {
        makeList({ project("{a}", "A"), project("{b}", "B", "Estimate") });
    }
};

QStringList bracket(std::initializer_list<const char *> between = {})
{
    return texts({ "beginUpdate", "endUpdate", "beginChanged" }) + texts(between)
        + texts({ "changed" });
}

// What the log says for a command that was received and for what it did.
QStringList infos(const char *command, std::initializer_list<const char *> more = {})
{
    return QStringList { text("recv project list message: msgCommand=") + text(command) }
    + texts(more);
}

} // namespace

TEST_F(ProjectListNotifications, AnotherKindOfMessageStillBracketsAnUpdate)
{
    for (const char *kind : { "notifymsg_checkout", "notifymsg_role", "notifymsg_connection",
             "Notifymsg_projectlist", "" }) {
        QJsonObject other = message("Save", project("{a}", "A"));
        other.insert(text("notifymsg_type"), text(kind));
        EXPECT_EQ(notify(other), bracket()) << kind;
    }
    EXPECT_EQ(notify({}), bracket());
    EXPECT_TRUE(takeInfos().isEmpty());
}

TEST_F(ProjectListNotifications, TheConnectionTextIsNoObjectAndDoesNoHarm)
{
    EXPECT_EQ(notify(json(R"({"notifymsg_type":"notifymsg_connection",
        "notifymsg_content":"Connection refused"})")),
        bracket());
}

TEST_F(ProjectListNotifications, AnUnknownCommandIsLoggedAndDoesNothing)
{
    for (const char *command : { "save", "SAVE", "Open", "", "UpdateAdditionalInfo", "%1" }) {
        EXPECT_EQ(notify(message(command, project("{a}", "Other"))), bracket());
        EXPECT_EQ(takeInfos(), infos(command));
    }
    EXPECT_EQ(record("{a}")->name(), text("A"));
}

TEST_F(ProjectListNotifications, TheCommandIsReadAtTheTopLevelOnly)
{
    QJsonObject content = project("{a}", "New name");
    content.insert(text("Command"), text("Rename"));
    QJsonObject envelope = message("", content);
    envelope.remove(text("Command"));
    EXPECT_EQ(notify(envelope), bracket());
    EXPECT_EQ(takeInfos(), infos(""));
    EXPECT_EQ(record("{a}")->name(), text("A"));
}

TEST_F(ProjectListNotifications, ASaveOfAClosedProjectCopiesTheLastEdit)
{
    const QJsonObject content = project("{a}", "Other name", "Estimate",
        json(R"({"LastEditorName":"Cleo","LastEditorEmail":"cleo@example.com",
            "LastModifyDate":"2027-01-02 03:04","Amount":"7.00","ProjectState":"1","LogVersion":9,
            "AdditionalInfo":"{\"other\":1}"})"));
    EXPECT_EQ(notify(message("Save", content)), bracket({ "projectSaved {a}" }));

    const KVXProjectInfo *info = record("{a}");
    EXPECT_EQ(info->lastEditor().name(), text("Cleo"));
    EXPECT_EQ(info->lastEditor().email(), text("cleo@example.com"));
    EXPECT_EQ(info->modifiedTime(), QDateTime(QDate(2027, 1, 2), QTime(3, 4)));
    EXPECT_EQ(info->amount(), text("7.00"));
    EXPECT_EQ(info->name(), text("A"));
    EXPECT_EQ(info->type(), text("Tender"));
    EXPECT_EQ(info->projectState(), 0);
    EXPECT_EQ(info->logVersion(), 6);
    EXPECT_EQ(info->addtionalInfo(), json(R"({"client":"City"})"));
    EXPECT_EQ(FakeSynchronizer::created, 0);
    EXPECT_EQ(
        takeInfos(), infos("Save", { "emit KVXCWProjectList::projectSaved: projectGUID={a}" }));
}

TEST_F(ProjectListNotifications, ASaveOfAnOpenProjectSynchronisesItsLogsBeforeTheSignals)
{
    open("{a}");
    QStringList signalsBeforeSync;
    FakeSynchronizer::duringSync = [&] { signalsBeforeSync = takeSignals(); };

    EXPECT_EQ(notify(message("Save", project("{a}", "A"))),
        texts({ "endUpdate", "beginChanged", "projectSaved {a}", "changed" }));

    EXPECT_EQ(signalsBeforeSync, texts({ "beginUpdate" }));
    EXPECT_EQ(FakeSynchronizer::synced, texts({ "{a}" }));
    EXPECT_EQ(FakeSynchronizer::created, 1);
    EXPECT_EQ(takeInfos(),
        infos("Save",
            { "Synchronize project logs: projectGUID={a}", "Synchronize project logs successed",
                "emit KVXCWProjectList::projectSaved: projectGUID={a}" }));
}

TEST_F(ProjectListNotifications, ASaveThatLacksFieldsCopiesTheirEmptiness)
{
    EXPECT_EQ(
        notify(message("Save", json(R"({"ProjectGUID":"{a}"})"))), bracket({ "projectSaved {a}" }));
    EXPECT_TRUE(record("{a}")->lastEditor().email().isEmpty());
    EXPECT_TRUE(record("{a}")->amount().isEmpty());
    EXPECT_FALSE(record("{a}")->modifiedTime().isValid());
}

TEST_F(ProjectListNotifications, AnUpdateThatLacksFieldsCopiesTheirEmptiness)
{
    record("{a}")->setProjectState(1);
    EXPECT_EQ(notify(message("Update", json(R"({"ProjectGUID":"{a}"})"))),
        bracket({ "change2Unpublish {a}" }))
        << "a missing state reads as 0";
    EXPECT_TRUE(record("{a}")->lastEditor().name().isEmpty());
    EXPECT_TRUE(record("{a}")->lastEditor().email().isEmpty());
    EXPECT_TRUE(record("{a}")->amount().isEmpty());
    EXPECT_FALSE(record("{a}")->modifiedTime().isValid());
    EXPECT_EQ(record("{a}")->projectState(), 0);
    EXPECT_EQ(record("{a}")->name(), text("A"));
}

TEST_F(ProjectListNotifications, ARenameWithoutADescriptionEmptiesTheName)
{
    EXPECT_EQ(notify(message("Rename", json(R"({"ProjectGUID":"{a}"})"))), bracket());
    EXPECT_TRUE(record("{a}")->name().isEmpty());
    EXPECT_EQ(
        takeInfos(), infos("Rename", { "rename project successed: projectGUID={a}, newName=" }));
}

TEST_F(ProjectListNotifications, CommandsOnAProjectThatIsNotListedAreIgnored)
{
    for (const char *command : { "Save", "Rename", "Remove", "Update", "UpdateAddionalInfo" }) {
        EXPECT_EQ(notify(message(command, project("{x}", "X"))), bracket()) << command;
        EXPECT_EQ(takeInfos(), infos(command));
    }
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(ProjectListNotifications, ARenameSetsTheName)
{
    EXPECT_EQ(notify(message("Rename", project("{a}", "50%1 of %2"))), bracket());
    EXPECT_EQ(record("{a}")->name(), text("50%1 of %2"));
    EXPECT_EQ(takeInfos(),
        infos("Rename", { "rename project successed: projectGUID={a}, newName=50%1 of %2" }));
}

TEST_F(ProjectListNotifications, PlaceholdersInsideAGuidStayWhatTheyAre)
{
    makeList({ project("{%2}", "A") });
    notify(message("Rename", project("{%2}", "%1")));
    EXPECT_EQ(
        takeInfos(), infos("Rename", { "rename project successed: projectGUID={%2}, newName=%1" }));
}

TEST_F(ProjectListNotifications, ARemovalDeletesTheRecordAndSignals)
{
    EXPECT_EQ(notify(message("Remove", project("{a}", "A"))), bracket({ "projectRemoved {a}" }));
    EXPECT_EQ(record("{a}"), nullptr);
    EXPECT_EQ(recordCount(), 1);
    EXPECT_EQ(takeInfos(), infos("Remove", { "remvoe project successed: projectGUID={a}" }));
    expectNoRequest(host);
}

TEST_F(ProjectListNotifications, ARemovalOfAnOpenProjectIsIgnored)
{
    open("{a}");
    EXPECT_EQ(notify(message("Remove", project("{a}", "A"))), bracket());
    EXPECT_NE(record("{a}"), nullptr);
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Opened);
    EXPECT_EQ(takeInfos(), infos("Remove"));
}

TEST_F(ProjectListNotifications, AnUpdateCopiesTheLastEditAndTheState)
{
    const QJsonObject published = project("{a}", "Other name", "Tender",
        json(R"({"LastEditorName":"Cleo","LastEditorEmail":"cleo@example.com","Amount":"8.00",
            "LastModifyDate":"2027-01-02 03:04","ProjectState":"1"})"));
    EXPECT_EQ(notify(message("Update", published)), bracket());
    EXPECT_EQ(record("{a}")->projectState(), 1);
    EXPECT_EQ(record("{a}")->amount(), text("8.00"));
    EXPECT_EQ(record("{a}")->lastEditor().name(), text("Cleo"));
    EXPECT_EQ(record("{a}")->modifiedTime(), QDateTime(QDate(2027, 1, 2), QTime(3, 4)));
    EXPECT_EQ(record("{a}")->name(), text("A"));
    EXPECT_EQ(takeInfos(), infos("Update", { "remvoe project info successed: projectGUID={a}" }));
}

TEST_F(ProjectListNotifications, OnlyTheStepFromOneToZeroIsAWithdrawal)
{
    const auto update = [this](const char *state) {
        return notify(message(
            "Update", project("{a}", "A", "Tender", { { text("ProjectState"), text(state) } })));
    };
    EXPECT_EQ(update("0"), bracket());
    EXPECT_EQ(update("1"), bracket());
    EXPECT_EQ(update("1"), bracket());
    EXPECT_EQ(update("0"), bracket({ "change2Unpublish {a}" }));
    EXPECT_EQ(record("{a}")->projectState(), 0);
    EXPECT_EQ(update("2"), bracket());
    EXPECT_EQ(update("0"), bracket());
    EXPECT_EQ(update("1"), bracket());
    EXPECT_EQ(update(""), bracket({ "change2Unpublish {a}" }));
}

TEST_F(ProjectListNotifications, ANewProjectOfTheCurrentUserIsIgnored)
{
    const QJsonObject content
        = project("{n}", "N", "Tender", withUsers({ collaborator("anna@example.com", 1) }));
    EXPECT_EQ(notify(message("New", content, "anna@example.com")), bracket());
    EXPECT_EQ(recordCount(), 2);
    EXPECT_EQ(takeInfos(), infos("New"));

    EXPECT_EQ(
        notify(message("New", content, "Anna@example.com")), bracket({ "projectOrPermNew  true" }))
        << "compared letter by letter";
}

TEST_F(ProjectListNotifications, ANewProjectThatTheUserMaySeeIsAppendedUnderAnEmptyGuid)
{
    for (const int level : { 0, 1, 9, -2 }) {
        makeList({});
        const QJsonObject extra = withUsers({ collaborator("anna@example.com", level) });
        QJsonObject content = project("{n}", "N", "Tender", extra);
        content.insert(text("CreatorEmail"), text("ben@example.com"));
        EXPECT_EQ(notify(message("New", content)), bracket({ "projectOrPermNew  false" }));
        EXPECT_EQ(record("{n}")->name(), text("N"));
        EXPECT_EQ(takeInfos(), infos("New", { "update new project info successed: projectGUID=" }));
    }
}

TEST_F(ProjectListNotifications, ANewProjectMadeElsewhereByTheSameUserIsToldAsHis)
{
    const QJsonObject content
        = project("{n}", "N", "Tender", withUsers({ collaborator("anna@example.com", 1) }));
    EXPECT_EQ(notify(message("New", content)), bracket({ "projectOrPermNew  true" }));
}

TEST_F(ProjectListNotifications, ANewProjectWithoutAPermissionIsNotSeen)
{
    const QList<QJsonObject> contents { project("{n}", "N"),
        project("{n}", "N", "BQLibrary", withUsers({ collaborator("ben@example.com", 1) })),
        project("{n}", "N", "Tender", withUsers({ collaborator("anna@example.com", -1) })),
        project("{n}", "N", "Tender", withUsers({ collaborator("ANNA@example.com", 1) })) };
    for (const QJsonObject &content : contents) {
        EXPECT_EQ(notify(message("New", content)), bracket());
        EXPECT_EQ(takeInfos(), infos("New"));
    }
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(ProjectListNotifications, AnAdministratorSeesEveryNewProject)
{
    host.setUser(text("Anna"), text("anna@example.com"), json(R"({"Name":"R","Administrator":1})"));
    QJsonObject content = project("{n}", "N");
    content.insert(text("CreatorEmail"), text("ben@example.com"));
    EXPECT_EQ(notify(message("New", content)), bracket({ "projectOrPermNew  false" }));
}

TEST_F(ProjectListNotifications, AReaderOfRateLibrariesSeesNewLibrariesOnly)
{
    for (const char *right : { "ReadOnlyRateLibrary", "ReadWriteRateLibrary" }) {
        host.setUser(text("Anna"), text("anna@example.com"),
            { { text("Name"), text("R") }, { text(right), 1 } });
        for (const char *kind : { "BQLibrary", "ResourceLibrary" }) {
            QJsonObject content = project("{n}", "N", kind);
            content.insert(text("CreatorEmail"), text("ben@example.com"));
            EXPECT_EQ(notify(message("New", content)), bracket({ "projectOrPermNew  false" }));
        }
        for (const char *kind : { "Tender", "Estimate", "Addendum", "bqlibrary", "" })
            EXPECT_EQ(notify(message("New", project("{n}", "N", kind))), bracket()) << kind;
    }
    host.setUser(text("Anna"), text("anna@example.com"), json(R"({"ReadWriteBQLibrary":1})"));
    EXPECT_EQ(notify(message("New", project("{n}", "N", "BQLibrary"))), bracket())
        << "the right to bills of quantities is another one";
}

TEST_F(ProjectListNotifications, ANewProjectThatCannotBeReadIsNotSeen)
{
    host.setUser(text("Anna"), text("anna@example.com"), json(R"({"Administrator":1})"));
    for (const QJsonValue &content : { QJsonValue(), QJsonValue(text("x")), QJsonValue(5),
             QJsonValue(QJsonArray { project("{n}", "N") }), QJsonValue(QJsonObject()) })
        EXPECT_EQ(notify(message("New", content)), bracket());
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(ProjectListNotifications, ANewProjectIsAppendedBesideAnOlderEntry)
{
    const QJsonObject content
        = project("{a}", "A", "Tender", withUsers({ collaborator("anna@example.com", 1) }));
    notify(message("New", content));
    EXPECT_EQ(recordCount(), 3);
}

TEST_F(ProjectListNotifications, WithoutAUserNoNewProjectIsSeen)
{
    host.removeUser();
    EXPECT_EQ(notify(message("New", project("{n}", "N", "BQLibrary"))), bracket());
    EXPECT_EQ(notify(message("New", project("{n}", "N"), "")), bracket());
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(ProjectListNotifications, AdditionalInformationComesAsAnObject)
{
    EXPECT_EQ(notify(message("UpdateAddionalInfo",
                  json(R"({"ProjectGUID":"{a}","AdditionalInfo":{"client":"Town"}})"))),
        bracket());
    EXPECT_EQ(record("{a}")->addtionalInfo(), json(R"({"client":"Town"})"));
    EXPECT_EQ(takeInfos(),
        infos("UpdateAddionalInfo", { "Update addional info successed: projectGUID={a}" }));

    notify(message("UpdateAddionalInfo",
        json(R"({"ProjectGUID":"{a}","AdditionalInfo":"{\"client\":\"Town\"}"})")));
    EXPECT_TRUE(record("{a}")->addtionalInfo().isEmpty()) << "text is no object";
}

TEST_F(ProjectListNotifications, TheSendersOwnClientAppliesItsCommandsToo)
{
    EXPECT_EQ(notify(message("Save", project("{a}", "A"), "anna@example.com")),
        bracket({ "projectSaved {a}" }));
    EXPECT_EQ(notify(message("Remove", project("{a}", "A"), "anna@example.com")),
        bracket({ "projectRemoved {a}" }));
}

TEST_F(ProjectListNotifications, AnOpenBracketHoldsBackOnlyTheSignalsOfTheList)
{
    const QJsonObject visible
        = project("{n}", "N", "Tender", withUsers({ collaborator("anna@example.com", 1) }));
    record("{b}")->setProjectState(1);
    emit list->beginUpdate();

    EXPECT_EQ(notify(message("Save", project("{a}", "A"))), texts({ "beginUpdate", "endUpdate" }));
    EXPECT_EQ(takeInfos(), infos("Save")) << "no line for the signal that is held back";
    EXPECT_EQ(notify(message("Remove", project("{a}", "A"))),
        texts({ "beginUpdate", "endUpdate", "projectRemoved {a}" }));
    EXPECT_EQ(notify(message("New", visible)),
        texts({ "beginUpdate", "endUpdate", "projectOrPermNew  true" }));
    EXPECT_EQ(notify(message("Update", project("{b}", "B"))),
        texts({ "beginUpdate", "endUpdate", "change2Unpublish {b}" }));
    EXPECT_EQ(notify(message("PermissionChanged", QJsonArray { project("{b}", "B") })),
        texts({ "beginUpdate", "endUpdate", "projectPermissionRemoved {b}" }));
    open("{n}");
    EXPECT_EQ(notify(message("PermissionChanged", QJsonArray { visible })),
        texts({ "beginUpdate", "endUpdate", "permissionChanged {n} 0:1>1 1:1>1 2:1>1 3:1>1" }));
    EXPECT_EQ(notify(message("PermissionChanged", QJsonArray { project("{n}", "N") })),
        texts({ "beginUpdate", "endUpdate", "projectPermissionRemoved {n}",
            "projCloseByPermRemoved {n}" }));

    emit list->endUpdate();
    takeSignals();
    EXPECT_EQ(notify({}), bracket());
}

TEST_F(ProjectListNotifications, ABracketThatAReceiverClosesReleasesTheLastSignals)
{
    emit list->beginUpdate();
    QObject::connect(
        list, &KVXCWProjectList::projectRemoved, list, [this] { emit list->endUpdate(); });
    EXPECT_EQ(notify(message("Remove", project("{a}", "A"))),
        texts({ "beginUpdate", "endUpdate", "projectRemoved {a}", "endUpdate", "changed" }));
}

TEST_F(ProjectListNotifications, ValuesOfAnyTypeDoNoHarm)
{
    const QList<QJsonValue> values { QJsonValue(), true, -1, 1e300, text("%1"),
        QJsonArray { 1, QJsonValue(), QJsonArray {}, QJsonObject {} }, json(R"({"a":{"b":[]}})"),
        json(R"({"ProjectGUID":5,"Description":[],"users":{"Email":1},"AdditionalInfo":7})"),
        json(R"({"ProjectGUID":"{b}","users":[1,{"Permission":[[],5,{"ProjectRW":"x"}]}]})") };
    for (const char *command : { "Save", "Rename", "Remove", "Update", "New", "UpdateAddionalInfo",
             "PermissionChanged", "Unknown" }) {
        for (const QJsonValue &value : values) {
            notify(message(command, value));
            notify(message(command, QJsonArray { value, value }));
        }
    }
    for (const char *key : { "notifymsg_type", "Command", "notifymsg_from", "notifymsg_content" }) {
        for (const QJsonValue &value : values) {
            QJsonObject envelope = message("Save", project("{a}", "A"));
            envelope.insert(text(key), value);
            notify(envelope);
        }
    }
    EXPECT_FALSE(list->isUpdating());
}
