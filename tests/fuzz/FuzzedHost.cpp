#include "FuzzedHost.h"

#include "projectlist/KVXCWProjectPermissionImpl.h"
#include "resources/KVXCWFileServiceImpl.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>

namespace kvx::test {

namespace {

constexpr int mostRequests = 40;

QCoreApplication *application()
{
    static int count = 1;
    static char name[] = "fuzz";
    static char *arguments[] = { name, nullptr };
    static auto *const made = new QCoreApplication(count, arguments); // to the end of the process
    return made;
}

QJsonObject honestProject()
{
    return json(R"({"Description":"School","Type":"Tender",
        "ProjectGUID":"{11111111-1111-1111-1111-111111111111}","CreateDate":"2026-11-20 08:15",
        "CreatorName":"Anna Weiss","CreatorEmail":"anna@example.com",
        "LastModifyDate":"2026-11-21 14:05","LogVersion":3,"Amount":"12.50","ProjectState":"0",
        "AdditionalInfo":"{}","users":[{"Name":"Anna Weiss","Email":"anna@example.com",
        "Permission":[{"ProjectRW":1},{"Money":1}]},{"Name":"Ben Ito","Email":"ben@example.com",
        "Permission":[{"ProjectRW":0}]}]})");
}

QJsonObject honestReply()
{
    return { { QStringLiteral("statuscode"), 1 }, { QStringLiteral("LogVersion"), 3 },
        { QStringLiteral("Projects"), QJsonArray { honestProject() } },
        { QStringLiteral("Project"), honestProject() },
        { QStringLiteral("Roles"), QJsonArray { json(R"({"Name":"Estimator","AllProjectReview":1,
                "Users":[{"Name":"Anna Weiss","Email":"anna@example.com"}]})") } } };
}

} // namespace

const QString FuzzedHost::guid = QStringLiteral("{11111111-1111-1111-1111-111111111111}");

void ReplyList::setReplies(const QJsonArray &replies)
{
    m_replies = replies;
    m_asked = 0;
}

bool ReplyList::post(const QString &, const QJsonObject &, QJsonObject &reply, void *receiver,
    ProgressFunction progress)
{
    if (m_replies.isEmpty() || m_asked >= mostRequests)
        return false;
    reply = m_replies.at(m_asked++ % m_replies.size()).toObject();
    if (progress)
        progress(receiver, 1, 2);
    return true;
}

FuzzedHost::FuzzedHost(std::unique_ptr<KVXCWMessage> given)
{
    application();
    KVXNetwork::setInstance(&network);
    network.setReplies({ honestReply() });
    KVXCollaborator *registry = KVXCollaborator::getInstance();
    if (given) {
        host.messager = nullptr; // goes with this
        registry->setMessager(given.release());
    }
    messager = registry->messager();
    registry->setFileService(new KVXCWFileServiceImpl);
    list = new KVXCWProjectListImpl;
    registry->setProjectListManager(list);
    registry->setProjectPermissionManager(new KVXCWProjectPermissionImpl);
    users = new KVXCWUserImpl;
    registry->setUserManager(users);
    projectData = new KVXCWProjectDataImpl;
    registry->setProjectDataSynchronizer(guid, projectData);
    projectData->setProjectGuid(guid);
    projectData->setProjectDatabase(&database);
    projectData->setPause([](int) {});
    items = new KVXCWIDManagerImpl;
    registry->setIdManager(guid, items);
    items->setProjectGuid(guid);
    items->setProjectDatabase(&database);
    list->openProject(guid);
    info.map = { { QStringLiteral("ProjectLogFile"), localFile() },
        { QStringLiteral("ProjectFile"), localFile() }, { QStringLiteral("Amount"), QString() } };
}

FuzzedHost::~FuzzedHost()
{
    network.setReplies({});
    KVXNetwork::setInstance(&host.network);
}

QString FuzzedHost::localFile() const
{
    static const QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("local"));
    if (QFile file(path); !file.exists() && file.open(QIODevice::WriteOnly))
        file.write("content");
    return path;
}

QJsonArray objectsOf(const QByteArray &text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text);
    return document.isArray() ? document.array() : QJsonArray { document.object() };
}

} // namespace kvx::test
