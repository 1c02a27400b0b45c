#include "../Require.h"
#include "FuzzedHost.h"
#include "JsonMutator.h"
#include "common/KVXCWCommonImpl.h"
#include "login/KVXCWLoginImpl.h"
#include "resources/KVXGlobalLockMgrImpl.h"
#include "resources/KVXReportTemplateMgrImpl.h"

#include "../../../runtime/KVXNetwork/JsonReply.h"

#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWProjectPermission.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QCoreApplication>
#include <QJsonDocument>
#include <cstdint>

using namespace kvx::test;

namespace {

void askProjectList(FuzzedHost &host)
{
    KVXCWProjectListImpl &list = *host.list;
    double status = 0;
    list.genProjectName();
    list.genProjectNameEx();
    list.newProject(TProjectsType::Tender, QStringLiteral("New"), QStringLiteral("{2}"), &status);
    list.fetchProject(FuzzedHost::guid);
    list.existsProject(QStringLiteral("Other"));
    list.openProject(FuzzedHost::guid);
    list.lockProject(FuzzedHost::guid, false);
    list.onlineEditors(FuzzedHost::guid);
    list.updateProjectAdditionalInfo(FuzzedHost::guid, {});
    list.renameProject(QStringLiteral("School"), QStringLiteral("Other"), FuzzedHost::guid);
    list.syncProjectList();
    if (KVXProjectInfo *record = list.getProjectInfoByGUID(FuzzedHost::guid)) {
        list.updateProject(record);
        list.addendumProject(TProjectsType::Addendum, *record, &status);
        KVXCollaborator::getInstance()->projectPermissionManager()->updatePermissions(record);
    }
    list.newProjectGroup(TProjectsType::Tender, QStringLiteral("Group"));
    list.existsProjectGroup(QStringLiteral("Group"));
    list.removeProject(FuzzedHost::guid);
}

void askProjectData(FuzzedHost &host)
{
    KVXItemCheckState holder;
    host.items->checkState(1, 7, holder);
    host.items->checkOut(1, { 7, 8 });
    host.items->ensureCheckedOut(1, 9, true);
    host.items->checkIn(1, QList<int> { 7 });
    for (int i = 0; i < 3; ++i) {
        const int id = host.items->newItemId(&host.database);
        require(id == -1 || id > 0, "an item number is none or positive");
    }
    host.items->registerCreatedItems(1, { 12 });
    host.items->checkOutNewItems();
    host.items->syncCheckOutStates();
    host.items->copyCheckState(FuzzedHost::guid, QStringLiteral("{2}"));
    host.items->checkInAll();
    host.projectData->syncLogs();
    host.projectData->saveProject(&host.info);
}

void askResources(FuzzedHost &host)
{
    KVXReportTemplateMgrImpl templates;
    KVXTemplateInfo info;
    QJsonObject content;
    QList<KVXTemplateInfo> infos;
    bool exists = false;
    templates.uploadTemplate(info, {});
    templates.downloadTemplate(QStringLiteral("t"), content);
    templates.queryTemplates(infos);
    templates.deleteTemplates({ QStringLiteral("t") });
    templates.templateExist(QStringLiteral("t"), exists, info);
    templates.renameTemplate(QStringLiteral("t"), QStringLiteral("u"));
    KVXGlobalLockMgrImpl locks;
    QString name;
    QString email;
    locks.GlobalLock(3, name, email, 5, true, QStringLiteral("Anna"), QStringLiteral("a@b"));
    locks.GlobalUnlock(3);
    KVXCWCommonImpl common;
    common.getTable(QStringLiteral("rates"));
    common.table(QStringLiteral("statuscode"));
    QString version;
    common.resourceVersion(QStringLiteral("127.0.0.1"), 8090, version);
    KVXCWFileService &files = *KVXCollaborator::getInstance()->fileService();
    files.download(QStringLiteral("School"), FuzzedHost::guid, host.localFile());
    files.hasUpload(host.localFile(), QStringLiteral("name"), true);
    QJsonObject request;
    files.upload(QString(), host.localFile(), QStringLiteral("name"), request, true, nullptr);
}

void askForUsers(FuzzedHost &host)
{
    host.users->syncToLocal();
    host.users->updateRoles();
    host.users->keepAlive();
    KVXUser user(QStringLiteral("Ben"), QStringLiteral("ben@example.com"));
    host.users->updateUserProductVersion(&user, KVXUser::KVXUserVersion(2));
    KVXCWLoginImpl login;
    login.login(QStringLiteral("anna@example.com"), QStringLiteral("word"), QString(), QString(),
        QString());
    require(login.leftCount() >= 0, "tries left are not negative");
    login.logout(QStringLiteral("anna@example.com"));
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(
    std::uint8_t *data, std::size_t size, std::size_t maxSize, unsigned int seed)
{
    return mutateJson(data, size, maxSize, seed);
}

/// The server's replies, one object or an array of them in turn: every operation that asks gets
/// them, and must come to an end with its manager in order.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), static_cast<int>(size));
    QJsonObject whole;
    require(kvx::parseReply(text, whole) == QJsonDocument::fromJson(text).isObject(),
        "a reply is one object");
    const QJsonArray replies = objectsOf(text);
    for (const auto ask : { askProjectList, askProjectData, askResources, askForUsers }) {
        FuzzedHost host;
        host.network.setReplies(replies);
        ask(host);
        QCoreApplication::processEvents();
        host.network.setReplies(replies);
        host.list->closeProject(FuzzedHost::guid);
        require(!host.list->isUpdating(), "every bracket is closed");
    }
    return 0;
}
