#include "ProjectListFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonDocument>

namespace kvx::test {

int FakeSynchronizer::created = 0;
int FakeSynchronizer::destroyed = 0;
QStringList FakeSynchronizer::synced;
std::function<void()> FakeSynchronizer::duringSync;
std::function<void()> FakeSynchronizer::atCreation;
std::function<void()> FakeSynchronizer::atEnd;

FakeSynchronizer::FakeSynchronizer()
{
    ++created;
    if (atCreation)
        atCreation();
}

FakeSynchronizer::~FakeSynchronizer()
{
    ++destroyed;
    if (atEnd)
        atEnd();
}

KVXCWProjectData::ErrorCode FakeSynchronizer::syncLogs()
{
    synced.append(m_guid);
    if (duringSync)
        duringSync();
    return MergeLogsFailed; // the list does not look at the result
}

QJsonObject project(const char *guid, const char *name, const char *type, const QJsonObject &extra)
{
    QJsonObject object = json(R"({
        "CreatorName":"Anna Weiss","CreatorEmail":"anna@example.com","CreateDate":"2026-11-20 09:30",
        "LastEditorName":"Ben Ito","LastEditorEmail":"ben@example.com",
        "LastModifyDate":"2026-11-21 14:05","LogVersion":6,"Amount":"1234567.89",
        "ProjectState":"0","BidStatus":0,"AddendumProjectGUID":"",
        "AdditionalInfo":"{\"client\":\"City\"}","users":[]})");
    object.insert(QStringLiteral("ProjectGUID"), text(guid));
    object.insert(QStringLiteral("Description"), text(name));
    object.insert(QStringLiteral("Type"), text(type));
    for (auto key = extra.begin(); key != extra.end(); ++key)
        object.insert(key.key(), key.value());
    return object;
}

QJsonObject collaborator(const char *email, int projectRW, int money, int addendum, int report)
{
    return { { QStringLiteral("Name"), text("Somebody") }, { QStringLiteral("Email"), text(email) },
        { QStringLiteral("Permission"),
            QJsonArray { QJsonObject { { QStringLiteral("ProjectRW"), projectRW } },
                QJsonObject { { QStringLiteral("Money"), money } },
                QJsonObject { { QStringLiteral("Addendum"), addendum } },
                QJsonObject { { QStringLiteral("Report"), report } } } } };
}

QJsonObject withUsers(const QList<QJsonObject> &users)
{
    QJsonArray array;
    for (const QJsonObject &user : users)
        array.append(user);
    return { { QStringLiteral("users"), array } };
}

QJsonObject message(const char *command, const QJsonValue &content, const char *from)
{
    return { { QStringLiteral("notifymsg_type"), QStringLiteral("notifymsg_projectlist") },
        { QStringLiteral("notifymsg_from"), text(from) },
        { QStringLiteral("notifymsg_to"), QString() }, { QStringLiteral("Command"), text(command) },
        { QStringLiteral("notifymsg_content"), content } };
}

const std::vector<Command> &commands()
{
    static const KVXProjectInfo source(text("Old"), text("Tender"), KVXProjectInfo::Closed, {});
    static KVXProjectInfo updated(text("Old"), text("Tender"), KVXProjectInfo::Closed, {});
    static const std::vector<Command> all {
        { "genprojectname", [](auto &list) { return !list.genProjectName().isEmpty(); } },
        { "genprojectname", [](auto &list) { return !list.genProjectNameEx().isEmpty(); } },
        { "newproject",
            [](auto &list) { return list.newProject(Tender, text("N"), text("{n}")); } },
        { "addendumproject", [](auto &list) { return list.addendumProject(Addendum, source); } },
        { "removeproject", [](auto &list) { return list.removeProject(text("{a}")); } },
        { "updateproject", [](auto &list) { return list.updateProject(&updated); } },
        { "renameproject",
            [](auto &list) { return list.renameProject(text("A"), text("B"), text("{a}")); } },
        { "existsproject", [](auto &list) { return list.existsProject(text("unknown")); } },
        { "openproject", [](auto &list) { return list.openProject(text("{a}")) == 1; } },
        { "closeproject", [](auto &list) { return list.closeProject(text("{a}")); } },
        { "projectlock", [](auto &list) { return list.lockProject(text("{a}"), false) == 1; } },
        { "onlineeditors", [](auto &list) { return !list.onlineEditors(text("{a}")).isEmpty(); } },
        { "updateprojectadditionalinfo",
            [](auto &list) { return list.updateProjectAdditionalInfo(text("{a}"), {}); } },
        { "newprojectgroup", [](auto &list) { return list.newProjectGroup(Tender, text("G")); } },
        { "removeprojectgroup", [](auto &list) { return list.removeProjectGroup(text("G")); } },
        { "renameprojectgroup",
            [](auto &list) { return list.renameProjectGroup(text("G"), text("H")); } },
        { "existsprojectgroup", [](auto &list) { return list.existsProjectGroup(text("G")); } },
    };
    return all;
}

ProjectListTest::ProjectListTest()
    : ManagerTest("KVXCWProjectListImpl::onNotify(", "KVXCWProjectListImpl")
{
    FakeSynchronizer::created = 0;
    FakeSynchronizer::destroyed = 0;
    FakeSynchronizer::synced.clear();
    KVXCollaborator::getInstance()->setProjectEntryPoints(&FakeSynchronizer::create, nullptr);
}

ProjectListTest::~ProjectListTest()
{
    for (auto *hook :
        { &FakeSynchronizer::duringSync, &FakeSynchronizer::atCreation, &FakeSynchronizer::atEnd })
        *hook = nullptr;
}

void ProjectListTest::answerList(const QList<QJsonObject> &projects)
{
    QJsonArray array;
    for (const QJsonObject &object : projects)
        array.append(object);
    host.network.answer(QStringLiteral("projectlistsynctolocal"),
        { { QStringLiteral("statuscode"), 1 },
            { QStringLiteral("data"), QJsonObject { { QStringLiteral("Projects"), array } } } });
}

void ProjectListTest::makeList(const QList<QJsonObject> &projects)
{
    answerList(projects);
    list = new KVXCWProjectListImpl;
    KVXCollaborator::getInstance()->setProjectListManager(list);
    recordSignals();
    forget();
}

void ProjectListTest::open(const char *guid)
{
    EXPECT_EQ(list->openProject(text(guid)), 1);
    host.network.takeRequests();
}

int ProjectListTest::recordCount() const
{
    int count = 0;
    for (const auto &records : list->projects())
        count += records.size();
    return count;
}

void ProjectListTest::recordSignals()
{
    const auto note = [this](const char *name) { return [this, name] { noteSignal(text(name)); }; };
    const auto noteGuid = [this](const char *name) {
        return [this, name](const QString &guid) { noteSignal(text(name) + u' ' + guid); };
    };
    using List = KVXCWProjectList;
    QObject::connect(list, &List::beginUpdate, note("beginUpdate"));
    QObject::connect(list, &List::endUpdate, note("endUpdate"));
    QObject::connect(list, &List::changed, note("changed"));
    QObject::connect(list, &List::beginChanged, note("beginChanged"));
    QObject::connect(list, &List::nameChanged, note("nameChanged"));
    QObject::connect(list, &List::projectClosed, note("projectClosed"));
    QObject::connect(list, &List::projectSaved, noteGuid("projectSaved"));
    QObject::connect(list, &List::projectRemoved, noteGuid("projectRemoved"));
    QObject::connect(list, &List::change2Unpublish, noteGuid("change2Unpublish"));
    QObject::connect(list, &List::projCloseByPermRemoved, noteGuid("projCloseByPermRemoved"));
    QObject::connect(list, &List::projectPermissionRemoved, noteGuid("projectPermissionRemoved"));
    QObject::connect(list, &List::projectOrPermNew, [this](const QString &guid, bool mine) {
        noteSignal(QStringLiteral("projectOrPermNew %1 %2")
                       .arg(guid, mine ? text("true") : text("false")));
    });
    QObject::connect(list, &List::permissionChanged,
        [this](const QString &guid, QMap<int, QPair<int, int>> &changes) {
            QString line = QStringLiteral("permissionChanged ") + guid;
            for (auto change = changes.begin(); change != changes.end(); ++change)
                line += QStringLiteral(" %1:%2>%3")
                            .arg(change.key())
                            .arg(change->first)
                            .arg(change->second);
            noteSignal(line);
        });
}

} // namespace kvx::test
