#include "PluginBench.h"

#include "frame/KVXServerInfo.h"
#include "projectlist/KVXCWProjectPermissionImpl.h"

#include <KVXCollaboration/KVXRole.h>

namespace kvx::test {

namespace {

QJsonObject withStatus(bool returned, double status)
{
    return { { QStringLiteral("returned"), returned }, { QStringLiteral("statuscode"), status } };
}

QJsonValue logIn(PluginBench &bench)
{
    KVXCWLoginImpl &login = bench.login();
    const int code
        = login.login(bench.text(0), bench.text(1), bench.text(2), bench.text(3), bench.text(4));
    QJsonObject result { { QStringLiteral("returned"), code } };
    if (code == KVXLoginRefused)
        result.insert(QStringLiteral("leftCount"), login.leftCount());
    if (const KVXUser *user = login.currentUser()) {
        result.insert(QStringLiteral("name"), user->name());
        result.insert(QStringLiteral("email"), user->email());
        result.insert(QStringLiteral("role"), user->role() ? user->role()->name() : QString());
        result.insert(QStringLiteral("brokerUrl"), KVXServerInfo::getInstance()->brokerUrl());
    }
    return result;
}

QJsonValue syncProjectList(PluginBench &bench)
{
    KVXCWProjectListImpl &list = bench.projectList();
    QJsonObject result { { QStringLiteral("returned"), list.syncProjectList() } };
    QJsonArray names;
    for (const auto &records : list.projects()) {
        for (const KVXProjectInfo *record : records)
            names.append(record->name());
    }
    result.insert(QStringLiteral("projects"), names);
    return result;
}

QJsonValue fetchProject(PluginBench &bench)
{
    KVXCWProjectListImpl &list = bench.projectList();
    QJsonObject result { { QStringLiteral("returned"), list.fetchProject(bench.text(0)) } };
    if (const KVXProjectInfo *record = list.getProjectInfoByGUID(bench.text(0)))
        result.insert(QStringLiteral("record"), record->toJson());
    return result;
}

QJsonValue newProject(PluginBench &bench)
{
    double status = -1;
    const bool made
        = bench.projectList().newProject(bench.kind(0), bench.text(1), bench.text(2), &status);
    return withStatus(made, status);
}

/// Arguments: kind, and the record of the new project.
QJsonValue addendumProject(PluginBench &bench)
{
    KVXCWProjectListImpl &list = bench.projectList();
    double status = -1;
    const bool made = list.addendumProject(bench.kind(0), *bench.record(1), &status);
    return withStatus(made, status);
}

QJsonValue updateProject(PluginBench &bench)
{
    KVXCWProjectListImpl &list = bench.projectList();
    return list.updateProject(bench.record(0).get());
}

QJsonValue renameProject(PluginBench &bench)
{
    double status = -1;
    const bool renamed
        = bench.projectList().renameProject(bench.text(0), bench.text(1), bench.text(2), &status);
    return withStatus(renamed, status);
}

QJsonValue updatePermissions(PluginBench &bench)
{
    bench.projectList();
    KVXCWProjectPermissionImpl permissions;
    return permissions.updatePermissions(bench.record(0).get());
}

/// Arguments: GUID, own log version, amount. The host's part of the save is ready.
QJsonValue saveProject(PluginBench &bench)
{
    bench.info.map = { { QStringLiteral("ProjectLogFile"), bench.changeLog() },
        { QStringLiteral("ProjectFile"), bench.localFile() },
        { QStringLiteral("Amount"), bench.text(2) } };
    return int(bench.projectData().saveProject(&bench.info));
}

/// Arguments: name on the server, the caller's own keys, whether with digest.
QJsonValue uploadFile(PluginBench &bench)
{
    QJsonObject request = bench.arguments.at(1).toObject();
    return bench.fileService().upload(
        QString(), bench.localFile(), bench.text(0), request, bench.flag(2), nullptr);
}

/// Arguments: GUID, module, items. States: 0 free, 1 the user's, 2 somebody else's.
QJsonValue checkOut(PluginBench &bench)
{
    const bool done = bench.idManager().checkOut(bench.number(1), bench.numbers(2));
    return QJsonObject { { QStringLiteral("returned"), done },
        { QStringLiteral("states"), bench.itemStates(bench.number(1), bench.numbers(2)) } };
}

QJsonValue checkIn(PluginBench &bench)
{
    const bool done = bench.idManager().checkIn(bench.number(1), bench.numbers(2));
    return QJsonObject { { QStringLiteral("returned"), done },
        { QStringLiteral("states"), bench.itemStates(bench.number(1), bench.numbers(2)) } };
}

/// Reads a module for the first time. Arguments: GUID, module, items to look at.
QJsonValue readModule(PluginBench &bench)
{
    KVXItemCheckState holder;
    bench.idManager().checkState(bench.number(1), 0, holder);
    return bench.itemStates(bench.number(1), bench.numbers(2));
}

/// Arguments: GUID, how many numbers.
QJsonValue newItemIds(PluginBench &bench)
{
    KVXCWIDManagerImpl &items = bench.idManager();
    QJsonArray ids;
    for (int i = 0; i < bench.number(1); ++i)
        ids.append(items.newItemId(&bench.database));
    return ids;
}

/// What is told when nothing was created: arguments: GUID, module.
QJsonValue checkOutNewItems(PluginBench &bench)
{
    KVXCWIDManagerImpl &items = bench.idManager();
    items.registerCreatedItems(bench.number(1), { 1 });
    return items.checkOutNewItems();
}

/// Argument: the user. Roles as "name: e-mail e-mail".
QJsonValue syncRoles(PluginBench &bench)
{
    KVXCWUserImpl &users = bench.users();
    QJsonObject result { { QStringLiteral("returned"), users.syncToLocal() } };
    QJsonArray roles;
    for (const KVXRole *role : users.roles()) {
        QStringList words { role->name() + QLatin1Char(':') };
        for (const KVXUser *user : role->users())
            words.append(user->email());
        roles.append(words.join(QLatin1Char(' ')));
    }
    result.insert(QStringLiteral("roles"), roles);
    if (const KVXRole *role = bench.host.login->user->role())
        result.insert(QStringLiteral("role"), role->name());
    return result;
}

/// Argument: the user. Sends what it has read.
QJsonValue updateRoles(PluginBench &bench)
{
    KVXCWUserImpl &users = bench.users();
    return QJsonObject { { QStringLiteral("returned"), users.updateRoles() },
        { QStringLiteral("statuscode"), users.statusCode() } };
}

/// Arguments: the user, whose version, which.
QJsonValue updateUserProductVersion(PluginBench &bench)
{
    KVXUser user(QString(), bench.text(1));
    const bool updated = bench.users().updateUserProductVersion(
        &user, static_cast<KVXUser::KVXUserVersion>(bench.number(2)));
    return QJsonObject { { QStringLiteral("returned"), updated },
        { QStringLiteral("version"), user.version() } };
}

} // namespace

const Operations &projectOperations()
{
    using B = PluginBench;
    static const Operations all {
        { QStringLiteral("login"), logIn },
        { QStringLiteral("logout"), [](B &b) { return b.login().logout(b.text(0)); } },
        { QStringLiteral("syncProjectList"), syncProjectList },
        { QStringLiteral("fetchProject"), fetchProject },
        { QStringLiteral("genProjectName"), [](B &b) { return b.projectList().genProjectName(); } },
        { QStringLiteral("newProject"), newProject },
        { QStringLiteral("addendumProject"), addendumProject },
        { QStringLiteral("removeProject"),
            [](B &b) { return b.projectList().removeProject(b.text(0)); } },
        { QStringLiteral("updateProject"), updateProject },
        { QStringLiteral("renameProject"), renameProject },
        { QStringLiteral("existsProject"),
            [](B &b) { return b.projectList().existsProject(b.text(0)); } },
        { QStringLiteral("openProject"),
            [](B &b) { return b.projectList().openProject(b.text(0)); } },
        { QStringLiteral("closeProject"),
            [](B &b) { return b.projectList().closeProject(b.text(0)); } },
        { QStringLiteral("lockProject"),
            [](B &b) { return b.projectList().lockProject(b.text(0), b.flag(1)); } },
        { QStringLiteral("onlineEditors"),
            [](B &b) {
                return QJsonArray::fromStringList(b.projectList().onlineEditors(b.text(0)));
            } },
        { QStringLiteral("updateProjectAdditionalInfo"),
            [](B &b) {
                return b.projectList().updateProjectAdditionalInfo(
                    b.text(0), b.arguments.at(1).toObject());
            } },
        { QStringLiteral("newProjectGroup"),
            [](B &b) { return b.projectList().newProjectGroup(b.kind(0), b.text(1)); } },
        { QStringLiteral("removeProjectGroup"),
            [](B &b) { return b.projectList().removeProjectGroup(b.text(0)); } },
        { QStringLiteral("renameProjectGroup"),
            [](B &b) { return b.projectList().renameProjectGroup(b.text(0), b.text(1)); } },
        { QStringLiteral("existsProjectGroup"),
            [](B &b) { return b.projectList().existsProjectGroup(b.text(0)); } },
        { QStringLiteral("updatePermissions"), updatePermissions },
        { QStringLiteral("syncRoles"), syncRoles },
        { QStringLiteral("updateRoles"), updateRoles },
        { QStringLiteral("updateUserProductVersion"), updateUserProductVersion },
        { QStringLiteral("keepAlive"), [](B &b) { return b.users().keepAlive(); } },
        { QStringLiteral("syncLogs"), [](B &b) { return int(b.projectData().syncLogs()); } },
        { QStringLiteral("saveProject"), saveProject },
        { QStringLiteral("downloadProject"),
            [](B &b) { return b.fileService().download(b.text(0), b.text(1), b.localFile()); } },
        { QStringLiteral("uploadProject"),
            [](B &b) { return b.fileService().upload(b.text(0), b.text(1), b.localFile(), {}); } },
        { QStringLiteral("uploadFile"), uploadFile },
        { QStringLiteral("hasUpload"),
            [](B &b) { return b.fileService().hasUpload(b.localFile(), b.text(0), b.flag(1)); } },
        { QStringLiteral("checkOut"), checkOut },
        { QStringLiteral("checkIn"), checkIn },
        { QStringLiteral("checkInAll"), [](B &b) { return b.idManager().checkInAll(); } },
        { QStringLiteral("readModule"), readModule },
        { QStringLiteral("checkOutNewItems"), checkOutNewItems },
        { QStringLiteral("copyCheckState"),
            [](B &b) { return b.idManager().copyCheckState(b.text(0), b.text(1)); } },
        { QStringLiteral("newItemIds"), newItemIds },
    };
    return all;
}

} // namespace kvx::test
