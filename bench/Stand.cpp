#include "Stand.h"

#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCommon/KVXZipFile.h>
#include <KVXNetwork/KVXNetwork.h>
#include <QCoreApplication>
#include <QFile>
#include <QThread>
#include <QUuid>
#include <algorithm>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace kvx::bench {

namespace {

QString buildFolder()
{
    return QCoreApplication::applicationDirPath() + QLatin1String("/..");
}

/// Publishing a thousand versions in a row is more than one session may ask at once.
bool isAskedToWait(bool carried)
{
    return !carried && KVXNetwork::getInstance()->lastError().contains(QLatin1String("HTTP 429"));
}

} // namespace

void require(bool condition, const QString &otherwise)
{
    if (!condition)
        throw std::runtime_error(otherwise.toStdString());
}

Stand::Stand(bool quick, bool guarded)
    : m_quick(quick)
    , m_site(buildFolder(), QStringLiteral(KVX_BROKER_SCRIPT))
{
    if (!guarded)
        m_site.withoutGuard();
    // All clients of this run share one address, and one user has many sessions.
    qputenv("KVX_SESSION_PERUSER", "100");
    qputenv("KVX_LIMITS_PERADDRESS", "1000");
    require(m_site.start(), m_site.error());
    require(m_site.addUser(m_email, QStringLiteral("Bench")), m_site.error());

    // Only now: projects, server and floors lie on the disk, what clients download where theirs
    // does.
    m_temporary.emplace();

    host::ClientOptions options;
    options.host = m_site.server().section(QLatin1Char(':'), 0, 0);
    options.port = m_site.server().section(QLatin1Char(':'), 1);
    options.email = m_email;
    options.password = password();
    options.plugin = buildFolder() + QLatin1String("/plugin/libKVXNetCollaboration.so");
    options.home = path(QStringLiteral("home"));
    m_client = std::make_unique<host::Client>(options);
    QString error;
    require(m_client->begin(&error) == KVXOk && m_client->brokerError().isEmpty(),
        QStringLiteral("the login failed: %1 %2").arg(error, m_client->brokerError()));
}

Stand::~Stand() = default;

int Stand::bareBrokerPort()
{
    if (!m_bare) {
        m_bare = std::make_unique<demo::Site>(buildFolder(), QStringLiteral(KVX_BROKER_SCRIPT));
        m_bare->withoutGuard();
        require(m_bare->startBroker(), m_bare->error());
    }
    return m_bare->brokerPort();
}

QString Stand::password() const
{
    QFile file(m_site.account(m_email).passwordFile);
    require(file.open(QIODevice::ReadOnly), file.errorString());
    return QString::fromUtf8(file.readLine()).remove(QLatin1Char('\n'));
}

QJsonObject Stand::service(const char *name, QJsonObject keys)
{
    keys.insert(QStringLiteral("service"), QLatin1String(name));
    keys.insert(QStringLiteral("Email"), m_email);
    QJsonObject reply;
    const QString url = QStringLiteral("http://%1/kvx/service").arg(m_site.server());
    bool carried = KVXNetwork::getInstance()->post(url, keys, reply, nullptr, nullptr);
    for (int i = 0; i < 100 && isAskedToWait(carried); ++i) {
        QThread::msleep(100);
        carried = KVXNetwork::getInstance()->post(url, keys, reply, nullptr, nullptr);
    }
    require(carried && reply.value(QLatin1String("statuscode")).toInt() == 1,
        QStringLiteral("%1 failed: %2 %3")
            .arg(QLatin1String(name), KVXNetwork::getInstance()->lastError(),
                reply.value(QLatin1String("message")).toString()));
    return reply;
}

std::unique_ptr<Wire> Stand::newSession()
{
    auto wire = std::make_unique<Wire>(m_site.server());
    wire->login(m_email, password());
    return wire;
}

void Stand::haveProjects(int count)
{
    constexpr int sessions = 16;
    std::vector<std::thread> threads;
    std::mutex mutex;
    std::exception_ptr failure;
    for (int session = 0; session < sessions; ++session) {
        threads.emplace_back([&, session, wire = newSession()] {
            try {
                for (int i = m_projects + session; i < count; i += sessions)
                    wire->call({ { QStringLiteral("service"), QStringLiteral("newproject") },
                        { QStringLiteral("Type"), KVXCWProjectList::getProjectType(Tender) },
                        { QStringLiteral("Name"), QStringLiteral("Town hall, lot %1").arg(i) },
                        { QStringLiteral("ProjectGUID"), QUuid::createUuid().toString() },
                        { QStringLiteral("CreatorName"), QStringLiteral("Bench") },
                        { QStringLiteral("CreatorEmail"), m_email },
                        { QStringLiteral("Email"), m_email },
                        { QStringLiteral("Amount"), QStringLiteral("0.00") },
                        { QStringLiteral("ProjectState"), 0 } });
            } catch (...) {
                const std::lock_guard<std::mutex> lock(mutex);
                failure = std::current_exception();
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    if (failure)
        std::rethrow_exception(failure);
    m_projects = std::max(m_projects, count);
}

QString Stand::shareFile(const QString &name, const QString &guid, const QString &file)
{
    KVXCollaborator *managers = KVXCollaborator::getInstance();
    KVXCWProjectList *list = managers->projectListManager();
    require(list->newProject(Tender, name, guid) && list->openProject(guid) == 1
            && managers->fileService()->upload(name, guid, file, {}) && list->closeProject(guid),
        QStringLiteral("the project %1 could not be made").arg(name));
    return guid;
}

QString Stand::share(const QString &name, const TenderSize &size, QString *base)
{
    const QString guid = QUuid::createUuid().toString();
    *base = path(name + QLatin1String(".kvx"));
    writeTender(*base, guid, size);
    return shareFile(name, guid, *base);
}

std::chrono::steady_clock::time_point Stand::publish(
    const QString &guid, int before, const QString &logFile, const QString &projectFile)
{
    const QString name = guid + QLatin1String("_log") + QString::number(before + 1);
    const QString archive = path(QStringLiteral("publish.zip"));
    require(KVXZipFile::compressFiles(archive, { { name, logFile } }, QString()),
        QStringLiteral("%1 cannot be packed").arg(logFile));
    const QString project = QStringLiteral("ProjectGUID");
    const QString version = QStringLiteral("LogVersion");
    const QString local = QStringLiteral("LocalFileName");
    const QString file = QStringLiteral("FileName");
    const QString release = QStringLiteral("ReleaseLock");
    service("loglock", { { project, guid }, { version, before }, { release, false } });
    service("upload", { { local, archive }, { file, name } });
    service("upload",
        { { local, projectFile }, { file, QString(guid + QLatin1String(".KVX")) },
            { project, guid }, { QStringLiteral("md5"), KVXCWFileService::md5(projectFile) } });
    service("sendservertomerge",
        { { project, guid }, { version, before }, { QStringLiteral("LogFilename"), name },
            { QStringLiteral("Amount"), QStringLiteral("1.00") } });
    const auto merged = std::chrono::steady_clock::now();
    service("loglock", { { project, guid }, { version, before + 1 }, { release, true } });
    return merged;
}

} // namespace kvx::bench
