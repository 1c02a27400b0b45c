#include "client/Client.h"

#include "client/PermissionNames.h"

#include <KVXCollaboration/KVXCWIDManager.h>
#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCWUser.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXReportTemplateMgr.h>
#include <KVXNetwork/KVXNetwork.h>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QThread>
#include <QUrl>
#include <QUuid>
#include <algorithm>
#include <iterator>

namespace kvx::host {

namespace {

KVXCollaborator *managers()
{
    return KVXCollaborator::getInstance();
}

/// Before the next try at something that failed so often before, in ms.
int pauseBefore(int failures)
{
    constexpr int seconds[] = { 1, 2, 5, 10, 30 };
    return seconds[std::min<int>(failures, static_cast<int>(std::size(seconds)) - 1)] * 1000;
}

/// A text as one component of a path.
QString component(const QString &text)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(text, "@", "."));
}

} // namespace

Client::Client(const ClientOptions &options)
    : m_options(options)
{
    m_reconnect.setSingleShot(true);
    connect(&m_reconnect, &QTimer::timeout, this, &Client::reconnect);
    connect(&m_keepAlive, &QTimer::timeout, this, &Client::keepAlive);
    m_fetch.setSingleShot(true);
    connect(&m_fetch, &QTimer::timeout, this, &Client::fetchMissed);
}

Client::~Client()
{
    end();
}

KVXErrorCode Client::begin(QString *error)
{
    if (!managers()->load(m_options.plugin)) {
        *error = managers()->errorString();
        return KVXFailed;
    }
    managers()->loginManager()->setServer(m_options.host, m_options.port, m_options.proxyType,
        m_options.proxyHost, m_options.proxyPort, m_options.proxyUser, m_options.proxyPassword);
    const KVXErrorCode result = login();
    if (result != KVXOk) {
        *error = failureReason(ErrorCodeToString(result));
        return result;
    }
    managers()->initialise();
    connectSignals();
    m_keepAlive.start(60 * 1000);
    return KVXOk;
}

/// The plug-in's result mixes server and broker; a new current user means that the server agreed.
KVXErrorCode Client::login()
{
    KVXCWLogin *manager = managers()->loginManager();
    const KVXUser *before = manager->currentUser();
    const KVXErrorCode result = manager->login(m_options.email, m_options.password,
        QStringLiteral("kvx"), QStringLiteral(KVX_VERSION), QStringLiteral("1"));
    const bool accepted = manager->currentUser() && manager->currentUser() != before;
    if (!accepted)
        return result;
    m_loggedIn = true;
    m_brokerError = result == KVXOk ? QString() : managers()->messager()->errorString();
    return KVXOk;
}

int Client::triesLeft() const
{
    return managers()->loginManager()->leftCount();
}

/// Without a request for some minutes the server takes the user for absent; later it ends the
/// session, and then only a new login helps.
void Client::keepAlive()
{
    if (managers()->userManager()->keepAlive() == KVXNotLoggedIn && !m_reconnect.isActive())
        reconnect();
}

QJsonObject Client::postService(const QJsonObject &request) const
{
    QJsonObject reply;
    KVXNetwork::getInstance()->post(
        QStringLiteral("http://%1:%2/kvx/service").arg(m_options.host, m_options.port), request,
        reply, nullptr, nullptr);
    return reply;
}

QString Client::saveLockHolder(const OpenProject &project) const
{
    QJsonObject request { { QStringLiteral("service"), QStringLiteral("loglock") },
        { QStringLiteral("Email"), m_options.email },
        { QStringLiteral("ProjectGUID"), project.guid() },
        { QStringLiteral("LogVersion"), project.synchronizer()->logVersion() },
        { QStringLiteral("ReleaseLock"), false } };
    const QJsonObject reply = postService(request);
    if (reply.value(QLatin1String("Lock")).toInt() == 1) {
        request.insert(QStringLiteral("ReleaseLock"), true); // it has come free; a save asks itself
        postService(request);
    }
    const QString holder = reply.value(QLatin1String("HolderName")).toString();
    return holder.isEmpty() ? QString()
                            : QStringLiteral("%1, since %2")
                                  .arg(holder, reply.value(QLatin1String("Since")).toString());
}

QString Client::waitForSaveLock(const OpenProject &project, int seconds) const
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        const QString holder = saveLockHolder(project);
        if (holder.isEmpty() || timer.elapsed() >= seconds * Q_INT64_C(1000))
            return holder;
        QThread::sleep(1);
    }
}

void Client::end()
{
    if (m_ending || !managers()->loginManager())
        return;
    m_ending = true;
    m_reconnect.stop();
    m_keepAlive.stop();
    m_fetch.stop();
    while (!m_open.empty())
        close(m_open.begin()->first);
    if (m_loggedIn)
        managers()->loginManager()->logout(m_options.email);
    managers()->unload();
}

void Client::connectSignals()
{
    KVXCWProjectList *list = managers()->projectListManager();
    connect(list, &KVXCWProjectList::projectSaved, this, [this](const QString &guid) {
        report(QStringLiteral("projectSaved"), guid);
        const auto open = m_open.find(guid);
        if (open != m_open.end())
            open->second->noteHistory();
        fetchLater(guid);
    });
    connect(list, &KVXCWProjectList::projectRemoved, this,
        [this](const QString &guid) { report(QStringLiteral("projectRemoved"), guid); });
    connect(list, &KVXCWProjectList::projectOrPermNew, this,
        [this](const QString &guid) { report(QStringLiteral("projectNew"), guid); });
    connect(list, &KVXCWProjectList::change2Unpublish, this,
        [this](const QString &guid) { report(QStringLiteral("projectUnpublished"), guid); });
    connect(list, &KVXCWProjectList::projectPermissionRemoved, this,
        [this](const QString &guid) { report(QStringLiteral("accessRemoved"), guid); });
    connect(list, &KVXCWProjectList::permissionChanged, this,
        [this](const QString &guid) { report(QStringLiteral("permissionChanged"), guid); });
    connect(list, &KVXCWProjectList::changed, this,
        [this] { report(QStringLiteral("listChanged"), QString()); });
    // Queued: the list is still at work when it says that a project must go.
    connect(
        list, &KVXCWProjectList::projCloseByPermRemoved, this, [this] { closeWithoutAccess(); },
        Qt::QueuedConnection);
    connect(managers()->userManager(), &KVXCWUser::currentUserPermissionChanged, this,
        [this](const Permissions &before, const Permissions &now) { onRights(before, now); });
    connect(managers()->reportTemplateManager(), &KVXReportTemplateMgr::templateInfoChanged, this,
        [this] { emit happened(QStringLiteral("templatesChanged"), {}); });
    connect(managers()->messager(), &KVXCWMessage::notify, this, &Client::onNotify,
        Qt::QueuedConnection);
}

void Client::report(const QString &event, const QString &guid)
{
    QJsonObject data;
    if (!guid.isEmpty())
        data.insert(QStringLiteral("guid"), guid);
    const KVXProjectInfo *info = managers()->projectListManager()->getProjectInfoByGUID(guid);
    if (info) {
        data.insert(QStringLiteral("project"), info->name());
        data.insert(QStringLiteral("editor"), info->lastEditor().name());
    }
    if (isOpen(guid))
        data.insert(QStringLiteral("version"), m_open.at(guid)->database().logVersion());
    emit happened(event, data);
}

void Client::closeWithoutAccess()
{
    for (auto at = m_open.begin(); at != m_open.end();) {
        const QString guid = (at++)->first;
        if (!managers()->projectListManager()->getProjectInfoByGUID(guid)) {
            close(guid);
            report(QStringLiteral("projectClosed"), guid);
        }
    }
}

/// What a role opens or closes is not announced project by project.
void Client::onRights(const Permissions &before, const Permissions &now)
{
    if (before == now)
        return;
    readListAnew();
    const auto without = [](QStringList names, const QStringList &others) {
        for (const QString &name : others)
            names.removeAll(name);
        return QJsonArray::fromStringList(names);
    };
    const QStringList had = namesOf(before);
    const QStringList has = namesOf(now);
    emit happened(QStringLiteral("rightsChanged"),
        { { QStringLiteral("granted"), without(has, had) },
            { QStringLiteral("withdrawn"), without(had, has) } });
}

void Client::readListAnew()
{
    if (managers()->projectListManager()->syncProjectList())
        closeWithoutAccess();
}

void Client::onNotify(const QJsonObject &message)
{
    if (message.value(QLatin1String("notifymsg_type")).toString()
        != QLatin1String("notifymsg_connection"))
        return;
    const QString text = message.value(QLatin1String("notifymsg_content")).toString();
    if (m_ending || m_reconnect.isActive())
        return;
    emit happened(QStringLiteral("connectionLost"), { { QStringLiteral("error"), text } });
    m_attempt = 0;
    m_reconnect.start(1000);
}

void Client::reconnect()
{
    const KVXErrorCode result = login();
    if (result == KVXOk && m_brokerError.isEmpty()) {
        m_attempt = 0;
        resynchronise();
        emit happened(QStringLiteral("connected"), {});
        return;
    }
    m_reconnect.start(pauseBefore(++m_attempt));
}

void Client::resynchronise()
{
    readListAnew();
    managers()->userManager()->syncToLocal();
    for (const auto &[guid, project] : m_open) {
        project->sync();
        project->ids()->syncCheckOutStates();
    }
}

/// Nobody announces a save twice: what could not be fetched when it was announced, because the
/// server was away or slow, would stay missing until the next one.
void Client::fetchLater(const QString &guid)
{
    const KVXProjectInfo *info = managers()->projectListManager()->getProjectInfoByGUID(guid);
    const bool own = info && info->lastEditor().email() == m_options.email.toLower();
    if (m_ending || own || !isOpen(guid) || m_open.at(guid)->synchronizer()->isSynced())
        return;
    m_missed.insert(guid);
    m_fetches = 0;
    m_fetch.start(pauseBefore(m_fetches));
}

void Client::fetchMissed()
{
    const QSet<QString> missed = m_missed;
    for (const QString &guid : missed) {
        const auto project = m_open.find(guid);
        const auto code
            = project == m_open.end() ? KVXCWProjectData::Success : project->second->sync();
        // What clashes with the user's edits is for the user to decide.
        if (code == KVXCWProjectData::Success || code == KVXCWProjectData::MergeLogsFailed)
            m_missed.remove(guid);
        if (code == KVXCWProjectData::Success && isOpen(guid))
            report(QStringLiteral("projectFetched"), guid);
    }
    if (!m_missed.isEmpty())
        m_fetch.start(pauseBefore(++m_fetches));
}

KVXProjectInfo *Client::find(const QString &nameOrGuid) const
{
    KVXCWProjectList *list = managers()->projectListManager();
    if (KVXProjectInfo *info = list->getProjectInfoByGUID(nameOrGuid))
        return info;
    for (const QList<KVXProjectInfo *> &kind : list->projects()) {
        for (KVXProjectInfo *info : kind) {
            if (info->name() == nameOrGuid)
                return info;
        }
    }
    return nullptr;
}

QString Client::folderOf(const QString &guid) const
{
    return QStringList { m_options.home,
        component(m_options.host + QLatin1Char(':') + m_options.port),
        component(m_options.email.toLower()), component(guid.mid(1, guid.size() - 2)) }
        .join(QLatin1Char('/'));
}

void Client::setClashChoice(KVXProjectDatabase::ClashChoice choice)
{
    m_options.clash = choice;
    for (const auto &[guid, project] : m_open)
        project->database().setClashChoice(choice);
}

OpenProject *Client::keep(std::unique_ptr<OpenProject> project)
{
    project->database().setClashChoice(m_options.clash);
    OpenProject *kept = project.get();
    m_open[project->guid()] = std::move(project);
    return kept;
}

OpenProject *Client::use(const QString &nameOrGuid, OpenProject::Failure *failure)
{
    const KVXProjectInfo *info = find(nameOrGuid);
    if (!info) {
        *failure = { KVXNoSuchProject,
            QStringLiteral("There is no project \"%1\" in your list.").arg(nameOrGuid) };
        return nullptr;
    }
    const QString guid = info->guid();
    const auto open = m_open.find(guid);
    if (open != m_open.end())
        return open->second.get();
    std::unique_ptr<OpenProject> project = OpenProject::open(
        info->name(), guid, folderOf(guid), m_options.clash, m_network.histories(), failure);
    return project ? keep(std::move(project)) : nullptr;
}

OpenProject *Client::create(const QString &name, TProjectsType type, const content::Bill &bill,
    OpenProject::Failure *failure)
{
    KVXCWProjectList *list = managers()->projectListManager();
    const QString guid = QUuid::createUuid().toString();
    double status = 0;
    if (!list->newProject(type, name, guid, &status)) {
        const int code = static_cast<int>(status);
        *failure = { code,
            code == 1 ? QStringLiteral("The project was made, but could not be read back.")
                      : failureReason(ErrorCodeToString(static_cast<KVXErrorCode>(code))) };
        return nullptr;
    }
    const int opened = list->openProject(guid);
    if (opened != 1) {
        *failure = { opened, failureReason(ErrorCodeToString(static_cast<KVXErrorCode>(opened))) };
        return nullptr;
    }
    std::unique_ptr<OpenProject> project
        = OpenProject::createBase(name, guid, folderOf(guid), bill, m_network.histories(), failure);
    if (!project) {
        // Without its base nobody could use it.
        list->closeProject(guid);
        list->removeProject(guid);
        return nullptr;
    }
    return keep(std::move(project));
}

bool Client::close(const QString &guid)
{
    const bool closed = managers()->projectListManager()->closeProject(guid);
    m_open.erase(guid); // only now: the managers that borrowed the database are gone
    return closed;
}

OpenProject *Client::discard(const QString &guid, QString *where, OpenProject::Failure *failure)
{
    close(guid);
    if (!OpenProject::putAside(folderOf(guid), where)) {
        *failure = { 0, QStringLiteral("the local copy cannot be renamed") };
        return nullptr;
    }
    return use(guid, failure);
}

} // namespace kvx::host
