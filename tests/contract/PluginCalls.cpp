#include "PluginCalls.h"

#include "common/KVXCWCommonImpl.h"
#include "frame/KVXServerInfo.h"
#include "login/KVXCWLoginImpl.h"
#include "projectdata/KVXCWIDManagerImpl.h"
#include "projectdata/KVXCWProjectDataImpl.h"
#include "projectdata/ProjectFixture.h"
#include "projectlist/KVXCWProjectListImpl.h"
#include "projectlist/KVXCWProjectPermissionImpl.h"
#include "resources/KVXCWFileServiceImpl.h"
#include "resources/KVXGlobalLockMgrImpl.h"
#include "resources/KVXReportTemplateMgrImpl.h"
#include "support/FakeHost.h"
#include "users/KVXCWUserImpl.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXRole.h>
#include <KVXCommon/IKVXSimpleTable.h>
#include <KVXCommon/KVXZipFile.h>
#include <KVXSQLite/KVXProjectDatabase.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <functional>
#include <memory>

namespace kvx::test {

namespace {

QJsonObject objectOf(const rapidjson::Value &value)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(filledJson(value))).object();
}

/// A project database without content, a change log of it, and the managers under test.
class PluginBench {
public:
    explicit PluginBench(const Exchange &exchange)
        : m_exchange(exchange)
        , m_call(exchange["call"])
    {
        arguments
            = QJsonDocument::fromJson(QByteArray::fromStdString(compactJson(m_call["arguments"])))
                  .array();
        KVXCollaborator::getInstance()->setFileService(new KVXCWFileServiceImpl);
        if (m_call.HasMember("others")) {
            for (const auto &other : m_call["others"].GetObject())
                host.network.answer(
                    QString::fromStdString(textOf(other.name)), objectOf(other.value));
        }
    }

    FakeDatabase database; // outlives the managers, which the host's registry destroys
    FakeInfo info;
    FakeHost host;
    QJsonArray arguments;

    QString text(int i) const { return arguments.at(i).toString(); }
    int number(int i) const { return arguments.at(i).toInt(); }
    bool flag(int i) const { return arguments.at(i).toBool(); }
    TProjectsType kind(int i) const { return static_cast<TProjectsType>(number(i)); }
    QList<int> numbers(int i) const
    {
        QList<int> list;
        const QJsonArray array = arguments.at(i).toArray();
        for (const QJsonValue &value : array)
            list.append(value.toInt());
        return list;
    }

    /// The managers are made; from here on the exchange's reply waits for its request.
    void begin()
    {
        const QString service = QString::fromStdString(m_exchange.service);
        const QJsonObject reply = objectOf(m_exchange["reply"]);
        const int occurrence = m_call.HasMember("occurrence") ? m_call["occurrence"].GetInt() : 1;
        for (int i = 1; i < occurrence; ++i)
            host.network.answerOnce(
                service, objectOf(m_call["others"][m_exchange.service.c_str()]));
        const bool carried = m_exchange.httpStatus() == 200;
        host.network.httpStatus = m_exchange.httpStatus();
        host.network.httpBody = QJsonDocument(reply).toJson();
        if (service.endsWith(QLatin1String("download")))
            host.network.handle(QStringLiteral("download"),
                [this, reply](const QJsonObject &request, QJsonObject &out) {
                    out = reply;
                    receive(request.value(QLatin1String("LocalFileName")).toString());
                    return true;
                });
        else if (carried)
            host.network.answerOnce(service, reply);
        else
            host.network.failPost(service);
        host.network.takeRequests();
    }

    KVXCWProjectListImpl &projectList()
    {
        host.network.answerOnce(
            QStringLiteral("projectlistsynctolocal"), { { QStringLiteral("statuscode"), 1 } });
        m_projectList = std::make_unique<KVXCWProjectListImpl>();
        begin();
        return *m_projectList;
    }

    /// The manager of the user whose e-mail is the first argument. Its table is the one that the
    /// exchange's request holds, if any.
    KVXCWUserImpl &users()
    {
        host.setUser(QString(), text(0));
        const QJsonObject request = objectOf(m_exchange["request"]);
        host.network.answerOnce(QStringLiteral("getroles"),
            { { QStringLiteral("statuscode"), 1 },
                { QStringLiteral("Roles"), request.value(QLatin1String("Roles")) } });
        m_users = std::make_unique<KVXCWUserImpl>();
        begin();
        return *m_users;
    }

    KVXReportTemplateMgrImpl &templates()
    {
        begin();
        return m_templates;
    }

    KVXGlobalLockMgrImpl &globalLocks()
    {
        begin();
        return m_globalLocks;
    }

    /// Of the user whose e-mail is the first argument.
    KVXCWCommonImpl &common()
    {
        host.setUser(QString(), text(0));
        begin();
        return m_common;
    }
    QTime now { 9, 0 };

    /// The record of one of the arguments; the bid status is set by hosts and not read from a
    /// record.
    std::unique_ptr<KVXProjectInfo> record(int i)
    {
        const QJsonObject json = arguments.at(i).toObject();
        std::unique_ptr<KVXProjectInfo> record(m_projectList->readProjectInfo(json));
        record->setBidStatus(json.value(QLatin1String("BidStatus")).toInt());
        return record;
    }

    KVXCWLoginImpl &login()
    {
        auto *manager = new KVXCWLoginImpl;
        KVXCollaborator::getInstance()->setLoginManager(manager);
        host.login = nullptr;
        begin();
        return *manager;
    }

    KVXCWFileService &fileService()
    {
        begin();
        return *KVXCollaborator::getInstance()->fileService();
    }

    /// The managers of the open project whose GUID is the first argument, at that log version.
    void openProject(int version)
    {
        KVXCollaborator *registry = KVXCollaborator::getInstance();
        host.network.answerOnce(QStringLiteral("getlogversion"),
            { { QStringLiteral("statuscode"), 1 }, { QStringLiteral("LogVersion"), version } });
        m_projectData = new KVXCWProjectDataImpl;
        registry->setProjectDataSynchronizer(text(0), m_projectData);
        m_projectData->setProjectGuid(text(0));
        m_projectData->setProjectDatabase(&database);
        m_projectData->setPause([](int) {});
        m_idManager = new KVXCWIDManagerImpl;
        registry->setIdManager(text(0), m_idManager);
        m_idManager->setProjectGuid(text(0));
    }

    KVXCWProjectDataImpl &projectData()
    {
        openProject(number(1));
        begin();
        return *m_projectData;
    }

    KVXCWIDManagerImpl &idManager()
    {
        openProject(-1);
        begin();
        return *m_idManager;
    }

    QJsonObject itemStates(int moduleType, const QList<int> &ids) const
    {
        QJsonObject states;
        for (const int id : ids)
            states.insert(QString::number(id), m_idManager->itemState(moduleType, id));
        return states;
    }

    /// A file of the client's with the exchange's content.
    QString localFile() const
    {
        const QString path = m_folder.filePath(QStringLiteral("local"));
        const QByteArray content = m_exchange.has("file")
            ? QByteArray::fromStdString(textOf(m_exchange["file"]["content"]))
            : QByteArray("project file");
        writeFile(path, content);
        return path;
    }

    /// A change log that can be loaded and changes nothing.
    QString changeLog() const
    {
        const QString path = m_folder.filePath(QStringLiteral("changes"));
        QString error;
        const auto file = KVXProjectDatabase::create(m_folder.filePath(QStringLiteral("made")),
            text(0), QStringLiteral("CREATE TABLE item(id INTEGER PRIMARY KEY)"), &error);
        if (!file || !file->sealBase()
            || !file->prepareSave(path, QStringLiteral("anna@example.com")) || !file->close())
            throw std::runtime_error(error.toStdString());
        return path;
    }

private:
    /// What the transport does with the body of a download.
    void receive(const QString &path)
    {
        if (!m_exchange.has("file"))
            return;
        const rapidjson::Value &file = m_exchange["file"];
        if (file.HasMember("entry"))
            KVXZipFile::compressFiles(path,
                { { QString::fromStdString(textOf(file["entry"])), changeLog() } }, QString());
        else
            writeFile(path, QByteArray::fromStdString(textOf(file["content"])));
    }

    const Exchange &m_exchange;
    const rapidjson::Value &m_call;
    QTemporaryDir m_folder;
    KVXReportTemplateMgrImpl m_templates;
    KVXGlobalLockMgrImpl m_globalLocks;
    KVXCWCommonImpl m_common { [this] { return now; } };
    std::unique_ptr<KVXCWProjectListImpl> m_projectList;
    std::unique_ptr<KVXCWUserImpl> m_users;
    KVXCWProjectDataImpl *m_projectData = nullptr; // owned by the registry
    KVXCWIDManagerImpl *m_idManager = nullptr; // owned by the registry
};

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

/// With what the manager says about a refusal.
template <class Manager> QJsonObject withError(const Manager &manager, QJsonObject result)
{
    if (manager.errorCode() != 0) {
        result.insert(QStringLiteral("code"), manager.errorCode());
        result.insert(QStringLiteral("text"), manager.errorText());
    }
    return result;
}

QJsonObject infoObject(const KVXTemplateInfo &info)
{
    return { { QStringLiteral("templateID"), info.templateID },
        { QStringLiteral("type"), info.type }, { QStringLiteral("name"), info.name },
        { QStringLiteral("author"), info.author },
        { QStringLiteral("authorEmail"), info.authorEmail },
        { QStringLiteral("projectVersion"), info.projectVersion },
        { QStringLiteral("md5"), info.md5 }, { QStringLiteral("createDate"), info.createDate },
        { QStringLiteral("lastModifyDate"), info.lastModifyDate } };
}

/// Arguments: what is known of the template, its content.
QJsonValue uploadTemplate(PluginBench &bench)
{
    const QJsonObject known = bench.arguments.at(0).toObject();
    KVXTemplateInfo info;
    info.name = known.value(QLatin1String("name")).toString();
    info.type = known.value(QLatin1String("type")).toInt();
    info.projectVersion = known.value(QLatin1String("projectVersion")).toString();
    info.author = known.value(QLatin1String("author")).toString();
    info.authorEmail = known.value(QLatin1String("authorEmail")).toString();
    KVXReportTemplateMgrImpl &templates = bench.templates();
    const bool done = templates.uploadTemplate(info, bench.arguments.at(1).toObject());
    return withError(templates,
        { { QStringLiteral("returned"), done }, { QStringLiteral("info"), infoObject(info) } });
}

QJsonValue downloadTemplate(PluginBench &bench)
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    QJsonObject content;
    const bool done = templates.downloadTemplate(bench.text(0), content);
    return withError(templates,
        { { QStringLiteral("returned"), done }, { QStringLiteral("content"), content } });
}

QJsonValue queryTemplates(PluginBench &bench)
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    QList<KVXTemplateInfo> infos;
    const bool done = templates.queryTemplates(infos);
    QJsonArray list;
    for (const KVXTemplateInfo &info : infos)
        list.append(infoObject(info));
    return withError(
        templates, { { QStringLiteral("returned"), done }, { QStringLiteral("list"), list } });
}

/// One identifier, or a list of them.
QJsonValue deleteTemplates(PluginBench &bench)
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    const QJsonValue ids = bench.arguments.at(0);
    QStringList list;
    for (const QJsonValue &id : ids.toArray())
        list.append(id.toString());
    const bool done = ids.isArray() ? templates.deleteTemplates(list)
                                    : templates.deleteTemplate(ids.toString());
    return withError(templates, { { QStringLiteral("returned"), done } });
}

QJsonValue renameTemplate(PluginBench &bench)
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    const bool done = templates.renameTemplate(bench.text(0), bench.text(1));
    return withError(templates, { { QStringLiteral("returned"), done } });
}

QJsonValue findTemplate(PluginBench &bench,
    bool (KVXReportTemplateMgr::*find)(const QString &, bool &, KVXTemplateInfo &))
{
    KVXReportTemplateMgrImpl &templates = bench.templates();
    bool exists = false;
    KVXTemplateInfo info;
    const bool done = (templates.*find)(bench.text(0), exists, info);
    return withError(templates,
        { { QStringLiteral("returned"), done }, { QStringLiteral("exists"), exists },
            { QStringLiteral("info"), infoObject(info) } });
}

/// Arguments: type, minutes, whether bound to the login, author's name and e-mail.
QJsonValue globalLock(PluginBench &bench)
{
    KVXGlobalLockMgrImpl &locks = bench.globalLocks();
    QString holder;
    QString email;
    const bool done = locks.GlobalLock(bench.number(0), holder, email, bench.number(1),
        bench.flag(2), bench.text(3), bench.text(4));
    return withError(locks,
        { { QStringLiteral("returned"), done }, { QStringLiteral("holder"), holder },
            { QStringLiteral("holderEmail"), email } });
}

QJsonValue globalUnlock(PluginBench &bench)
{
    KVXGlobalLockMgrImpl &locks = bench.globalLocks();
    const bool done = locks.GlobalUnlock(bench.number(0));
    return withError(locks, { { QStringLiteral("returned"), done } });
}

/// Arguments: the user, the table's name; null for none.
QJsonValue getTable(PluginBench &bench)
{
    const IKVXSimpleTable *table = bench.common().getTable(bench.text(1));
    return table ? QJsonValue(table->toJson()) : QJsonValue();
}

/// Arguments: the user, the table in its own form.
QJsonValue updateTable(PluginBench &bench)
{
    std::unique_ptr<IKVXSimpleTable> table(
        IKVXSimpleTable::fromJson(bench.arguments.at(1).toObject()));
    if (!bench.common().updateTable(table.get()))
        return false;
    table.release();
    return true;
}

/// Arguments: the user, the seconds before each tick.
QJsonValue tickAfter(PluginBench &bench)
{
    KVXCWCommonImpl &common = bench.common();
    for (const int seconds : bench.numbers(1)) {
        bench.now = bench.now.addSecs(seconds);
        common.tick();
    }
    return {};
}

/// Arguments: host, port.
QJsonValue resourceVersion(PluginBench &bench)
{
    QString version;
    const bool done = bench.common().resourceVersion(bench.text(0), bench.number(1), version);
    return QJsonObject { { QStringLiteral("returned"), done },
        { QStringLiteral("version"), version } };
}

/// Arguments: host, port.
QJsonValue downloadResource(PluginBench &bench)
{
    const QString path = bench.localFile() + QLatin1String(".package");
    QJsonObject result { { QStringLiteral("returned"),
        bench.common().downloadResource(path, bench.text(0), bench.number(1)) } };
    QFile file(path);
    if (file.open(QIODevice::ReadOnly))
        result.insert(QStringLiteral("content"), QString::fromUtf8(file.readAll()));
    return result;
}

using Operation = std::function<QJsonValue(PluginBench &)>;

const QMap<QString, Operation> &operations()
{
    using B = PluginBench;
    static const QMap<QString, Operation> all {
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
        { QStringLiteral("uploadTemplate"), uploadTemplate },
        { QStringLiteral("downloadTemplate"), downloadTemplate },
        { QStringLiteral("queryTemplates"), queryTemplates },
        { QStringLiteral("deleteTemplates"), deleteTemplates },
        { QStringLiteral("deleteTemplate"), deleteTemplates },
        { QStringLiteral("renameTemplate"), renameTemplate },
        { QStringLiteral("templateExist"),
            [](B &b) { return findTemplate(b, &KVXReportTemplateMgr::templateExist); } },
        { QStringLiteral("templateExistByID"),
            [](B &b) { return findTemplate(b, &KVXReportTemplateMgr::templateExistByID); } },
        { QStringLiteral("globalLock"), globalLock },
        { QStringLiteral("globalUnlock"), globalUnlock },
        { QStringLiteral("getTable"), getTable },
        { QStringLiteral("updateTable"), updateTable },
        { QStringLiteral("tickAfter"), tickAfter },
        { QStringLiteral("resourceVersion"), resourceVersion },
        { QStringLiteral("downloadResource"), downloadResource },
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

} // namespace

CallOutcome performCall(const Exchange &exchange)
{
    const QString name = QString::fromStdString(textOf(exchange["call"]["operation"]));
    const Operation operation = operations().value(name);
    if (!operation)
        throw std::runtime_error("there is no operation " + name.toStdString());
    PluginBench bench(exchange);
    CallOutcome outcome;
    outcome.result = operation(bench);
    outcome.requests = bench.host.network.takeRequests();
    outcome.url = bench.host.network.lastUrl();
    for (const auto &[url, request] : qAsConst(bench.host.network.httpRequests)) {
        outcome.requests.append(request);
        outcome.url = url;
    }
    return outcome;
}

QStringList knownOperations()
{
    return operations().keys();
}

} // namespace kvx::test
