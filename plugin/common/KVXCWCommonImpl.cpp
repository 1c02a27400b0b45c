#include "common/KVXCWCommonImpl.h"

#include "frame/JsonNumber.h"
#include "frame/KVXServerInfo.h"
#include "frame/ServiceRequest.h"
#include "login/CurrentUser.h"

#include <KVXCollaboration/KVXUser.h>
#include <KVXCommon/IKVXSimpleTable.h>
#include <KVXNetwork/KVXNetwork.h>
#include <QJsonDocument>
#include <utility>

namespace {

/// A report is due after so much work, and a longer silence was none.
constexpr int ReportSeconds = 300;
constexpr int HttpOk = 200;

QString resourceUrl(const QString &host, int port, const char *what)
{
    return QStringLiteral("http://%1:%2/kvx/v2/api/comresource/%3")
        .arg(host, QString::number(port), QLatin1String(what));
}

} // namespace

KVXCWCommonImpl::KVXCWCommonImpl(Clock clock)
    : m_clock(std::move(clock))
    , m_lastTick(m_clock())
{
}

KVXCWCommonImpl::~KVXCWCommonImpl() = default;

bool KVXCWCommonImpl::updateTable(IKVXSimpleTable *table)
{
    if (!table)
        return false;
    const ServiceReply reply = ServiceRequest("updatetable")
                                   .set("Email", kvx::currentUserEmail())
                                   .set("Table", table->toJson())
                                   .post();
    // Kept as is: judged by the exchange; the server refuses with an HTTP status.
    if (!reply.carried())
        return false;
    const QString name = table->name();
    store(name, table);
    emit commitFinish(name);
    return true;
}

IKVXSimpleTable *KVXCWCommonImpl::getTable(const QString &name)
{
    const ServiceReply reply = ServiceRequest("gettable")
                                   .set("Email", kvx::currentUserEmail())
                                   .set("tablename", name)
                                   .post();
    if (!reply.carried())
        return nullptr;
    IKVXSimpleTable *table = IKVXSimpleTable::fromJson({
        { QStringLiteral("tablename"), name },
        { QStringLiteral("tabledata"), reply[name].toObject() },
    });
    store(name, table);
    return table;
}

IKVXSimpleTable *KVXCWCommonImpl::table(const QString &name)
{
    const auto cached = m_tables.find(name);
    return cached != m_tables.end() ? cached->second.get() : getTable(name);
}

void KVXCWCommonImpl::tick()
{
    const std::unique_lock<std::mutex> lock(m_tickMutex, std::try_to_lock);
    if (!lock)
        return;
    const QTime now = m_clock();
    // Kept as is: negative across midnight, and counted so.
    const int seconds = m_lastTick.secsTo(now);
    if (seconds > ReportSeconds) {
        m_pendingSeconds = 0;
    } else {
        m_pendingSeconds += seconds;
        if (m_pendingSeconds >= ReportSeconds)
            reportWorkingTime(std::exchange(m_pendingSeconds, 0) / 60);
    }
    m_lastTick = now;
}

bool KVXCWCommonImpl::resourceVersion(const QString &host, int port, QString &version)
{
    QByteArray body;
    if (KVXNetwork::getInstance()->httpGet(resourceUrl(host, port, "version"), body) != HttpOk)
        return false;
    const QJsonObject reply = QJsonDocument::fromJson(body).object();
    if (kvx::toInt(reply.value(QLatin1String("statuscode"))) != 1)
        return false;
    version
        = reply.value(QLatin1String("data")).toObject().value(QLatin1String("version")).toString();
    return true;
}

int KVXCWCommonImpl::downloadResource(const QString &localFileName, const QString &host, int port)
{
    return ServiceRequest("download")
        .set("LocalFileName", localFileName)
        .set("HttpMethod", QStringLiteral("0"))
        .postTo(resourceUrl(host, port, "download"))
        .status();
}

// The table may stand in the cache already, also under a name that it had before: it must not be
// owned twice. The one that it replaces goes last.
void KVXCWCommonImpl::store(const QString &name, IKVXSimpleTable *table)
{
    for (auto entry = m_tables.begin(); entry != m_tables.end();) {
        if (entry->second.get() == table) {
            entry->second.release();
            entry = m_tables.erase(entry);
        } else {
            ++entry;
        }
    }
    std::unique_ptr<IKVXSimpleTable> replaced(table);
    replaced.swap(m_tables[name]);
}

void KVXCWCommonImpl::reportWorkingTime(int minutes) const
{
    KVXServerInfo *server = KVXServerInfo::getInstance();
    const KVXUser *user = kvx::currentUser();
    if (!server->isConfigured() || !user)
        return;
    const ServiceRequest report = ServiceRequest("logworkingtime")
                                      // Kept as is: lower case here, unlike with the tables.
                                      .set("email", user->email())
                                      .set("workingTime", minutes);
    // Kept as is: minutes that were not delivered are not kept.
    KVXNetwork::getInstance()->httpPost(
        server->baseUrl() + QLatin1String("/kvx/v2/api/workingtime"), report.object());
}
