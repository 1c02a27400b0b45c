#include "ProjectListFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonDocument>

namespace kvx::test {

int FakeSynchronizer::created = 0;
int FakeSynchronizer::destroyed = 0;
QStringList FakeSynchronizer::synced;
std::function<void()> FakeSynchronizer::duringSync;

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

ProjectListTest::ProjectListTest()
    : ManagerTest("KVXCWProjectListImpl", "KVXCWProjectListImpl")
{
    FakeSynchronizer::created = 0;
    FakeSynchronizer::destroyed = 0;
    FakeSynchronizer::synced.clear();
    FakeSynchronizer::duringSync = nullptr;
    KVXCollaborator::getInstance()->setProjectEntryPoints(&FakeSynchronizer::create, nullptr);
}

ProjectListTest::~ProjectListTest()
{
    FakeSynchronizer::duringSync = nullptr;
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
