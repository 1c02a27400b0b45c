#include "PluginBench.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCommon/KVXZipFile.h>
#include <KVXSQLite/KVXProjectDatabase.h>
#include <QJsonDocument>

namespace kvx::test {

namespace {

QJsonObject objectOf(const rapidjson::Value &value)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(filledJson(value))).object();
}

} // namespace

PluginBench::PluginBench(const Exchange &exchange)
    : m_exchange(exchange)
    , m_call(exchange["call"])
{
    arguments = QJsonDocument::fromJson(QByteArray::fromStdString(compactJson(m_call["arguments"])))
                    .array();
    KVXCollaborator::getInstance()->setFileService(new KVXCWFileServiceImpl);
    // A lock that is refused for the version is asked for again until the server has another
    // answer.
    host.network.answer(QStringLiteral("loglock"),
        { { QStringLiteral("statuscode"), 1 }, { QStringLiteral("Lock"), 1 } });
    if (m_call.HasMember("others")) {
        for (const auto &other : m_call["others"].GetObject())
            host.network.answer(QString::fromStdString(textOf(other.name)), objectOf(other.value));
    }
}

QList<int> PluginBench::numbers(int i) const
{
    QList<int> list;
    const QJsonArray array = arguments.at(i).toArray();
    for (const QJsonValue &value : array)
        list.append(value.toInt());
    return list;
}

void PluginBench::begin()
{
    const QString service = QString::fromStdString(m_exchange.service);
    const QJsonObject reply = objectOf(m_exchange["reply"]);
    const int occurrence = m_call.HasMember("occurrence") ? m_call["occurrence"].GetInt() : 1;
    for (int i = 1; i < occurrence; ++i)
        host.network.answerOnce(service, objectOf(m_call["others"][m_exchange.service.c_str()]));
    const bool carried = m_exchange.httpStatus() == 200;
    host.network.httpStatus = m_exchange.httpStatus();
    host.network.httpBody = QJsonDocument(reply).toJson();
    const bool download = service.endsWith(QLatin1String("download"));
    if (download || service == QLatin1String("result"))
        host.network.handle(download ? QStringLiteral("download") : service,
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

KVXCWProjectListImpl &PluginBench::projectList()
{
    host.network.answerOnce(
        QStringLiteral("projectlistsynctolocal"), { { QStringLiteral("statuscode"), 1 } });
    m_projectList = std::make_unique<KVXCWProjectListImpl>();
    begin();
    return *m_projectList;
}

KVXCWUserImpl &PluginBench::users()
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

KVXReportTemplateMgrImpl &PluginBench::templates()
{
    begin();
    return m_templates;
}

KVXGlobalLockMgrImpl &PluginBench::globalLocks()
{
    begin();
    return m_globalLocks;
}

KVXCWCommonImpl &PluginBench::common()
{
    host.setUser(QString(), text(0));
    begin();
    return m_common;
}

std::unique_ptr<KVXProjectInfo> PluginBench::record(int i)
{
    const QJsonObject json = arguments.at(i).toObject();
    std::unique_ptr<KVXProjectInfo> record(m_projectList->readProjectInfo(json));
    record->setBidStatus(json.value(QLatin1String("BidStatus")).toInt());
    return record;
}

KVXCWLoginImpl &PluginBench::login()
{
    auto *manager = new KVXCWLoginImpl;
    KVXCollaborator::getInstance()->setLoginManager(manager);
    host.login = nullptr;
    begin();
    return *manager;
}

KVXCWFileService &PluginBench::fileService()
{
    begin();
    return *KVXCollaborator::getInstance()->fileService();
}

void PluginBench::openProject(int version)
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

KVXCWProjectDataImpl &PluginBench::projectData()
{
    openProject(number(1));
    begin();
    return *m_projectData;
}

KVXCWIDManagerImpl &PluginBench::idManager()
{
    openProject(-1);
    begin();
    return *m_idManager;
}

QJsonObject PluginBench::itemStates(int moduleType, const QList<int> &ids) const
{
    QJsonObject states;
    for (const int id : ids)
        states.insert(QString::number(id), m_idManager->itemState(moduleType, id));
    return states;
}

QString PluginBench::localFile() const
{
    const QString path = m_folder.filePath(QStringLiteral("local"));
    const QByteArray content = m_exchange.has("file")
        ? QByteArray::fromStdString(textOf(m_exchange["file"]["content"]))
        : QByteArray("project file");
    writeFile(path, content);
    return path;
}

QString PluginBench::changeLog() const
{
    const QString path = m_folder.filePath(QStringLiteral("changes"));
    QString error;
    const auto file = KVXProjectDatabase::create(m_folder.filePath(QStringLiteral("made")), text(0),
        QStringLiteral("CREATE TABLE item(id INTEGER PRIMARY KEY)"), &error);
    if (!file || !file->sealBase() || !file->prepareSave(path, QStringLiteral("anna@example.com"))
        || !file->close())
        throw std::runtime_error(error.toStdString());
    return path;
}

void PluginBench::receive(const QString &path)
{
    if (!m_exchange.has("file"))
        return;
    const rapidjson::Value &file = m_exchange["file"];
    if (file.HasMember("entry"))
        KVXZipFile::compressFiles(
            path, { { QString::fromStdString(textOf(file["entry"])), changeLog() } }, QString());
    else
        writeFile(path, QByteArray::fromStdString(textOf(file["content"])));
}

} // namespace kvx::test
