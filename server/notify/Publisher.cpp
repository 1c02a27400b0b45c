#include "notify/Publisher.h"
#include "base/Config.h"
#include "base/Log.h"
#include "notify/Message.h"
#include "store/AudienceStore.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/MetaStore.h"

#include <FailPoint.h>
#include <algorithm>
#include <future>

namespace kvx::server {

namespace {

constexpr std::chrono::milliseconds pollInterval { 500 };
constexpr std::chrono::milliseconds firstBackoff { 200 };
constexpr std::chrono::milliseconds longestBackoff { 5000 };
/// A broker that answers nothing more holds up the closing of its connection this long at most.
constexpr std::chrono::seconds closingLimit { 5 };
constexpr std::size_t inFlightLimit = 64;
constexpr char noGuard[] = "it has no guard";
constexpr std::size_t messageLimit = std::size_t { 1 } << 20;
/// A "New" that comes later than this may meet a list that holds the project already.
constexpr Time newIsLate = 5000;

/// A broker that other machines reach must keep strangers out before anything is published there.
bool needsGuard(const Config &config)
{
    const std::size_t begin = config.brokerUrl.find("://");
    const std::size_t host = begin == std::string::npos ? 0 : begin + 3;
    const std::string name = config.brokerUrl.substr(host, config.brokerUrl.find(':', host) - host);
    return !isLoopback(name) && config.brokerGuard != "off";
}

} // namespace

Publisher::Publisher(const Config &config, const Clock &clock, DbPool &pool, ProjectRecord record)
    : BrokerWorker(config, BrokerLink::Topic::Notifications)
    , m_config(config)
    , m_clock(clock)
    , m_pool(pool)
    , m_record(std::move(record))
{
    begin([this] { run(); });
}

Publisher::~Publisher()
{
    end();
}

bool Publisher::stop(std::chrono::milliseconds limit)
{
    return BrokerWorker::stop(limit, closingLimit);
}

template <class Result> Result Publisher::inPool(bool write, std::function<Result(Db &)> work)
{
    std::promise<Result> promise;
    std::future<Result> future = promise.get_future();
    const auto job = [&promise, &work, write](Db &db) {
        try {
            Transaction transaction(
                db, write ? Transaction::Kind::WriteLazily : Transaction::Kind::Read);
            Result result = work(db);
            transaction.commit();
            promise.set_value(std::move(result));
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
    };
    if (write)
        m_pool.write(job);
    else
        m_pool.readHere(job);
    return future.get();
}

void Publisher::run()
{
    bool loaded = false;
    while (true) {
        try {
            if (!loaded) {
                m_perhapsSent = inPool<std::int64_t>(false, [this](Db &db) {
                    m_nextNumber = std::stoll(metaValue(db, "notifymsg_seq").value_or("1"));
                    return lastOutboxRow(db);
                });
                loaded = true;
            }
            markDelivered();
            if (!isLeft())
                break;
            bool more = false;
            if (m_link.isThere() || connect())
                more = pass();
            std::unique_lock<std::mutex> lock(m_mutex);
            const auto pause
                = m_link.isThere() || m_backoff.count() == 0 ? pollInterval : m_backoff;
            if (!more) {
                m_changed.wait_for(lock, pause, [this] {
                    return (m_woken && m_link.isThere()) || m_link.isBroken()
                        || !m_delivered.empty() || m_stopping;
                });
            }
            m_woken = false;
            const bool broken = m_link.isBroken();
            const std::string cause = m_link.cause();
            lock.unlock();
            if (broken)
                disconnect(cause);
        } catch (const std::exception &error) {
            logLine(LogLevel::Error, "publisher", { { "cause", error.what() } });
            std::unique_lock<std::mutex> lock(m_mutex);
            m_changed.wait_for(lock, pollInterval, [this] { return m_stopping; });
            if (m_stopping && std::chrono::steady_clock::now() >= m_stopEnd)
                break;
        }
    }
    m_connected = false;
}

/// False when the publisher is to stop and has nothing left, or no time.
bool Publisher::isLeft()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_stopping)
            return true;
        if (!m_link.isThere() || std::chrono::steady_clock::now() >= m_stopEnd)
            return false; // the rows wait for the next start
        if (!m_inFlight.empty())
            return true;
    }
    return inPool<bool>(false, [](Db &db) { return !unsentRows(db, 0, 1).empty(); });
}

bool Publisher::connect()
{
    try {
        m_link.connect();
    } catch (const BrokerError &error) {
        disconnect(error.what());
        return false;
    }
    if (!m_link.isGuarded() && needsGuard(m_config)) {
        if (!m_heldBack.exchange(true))
            logLine(LogLevel::Error,
                "nothing is published: the broker can be reached from other machines and has no "
                "guard; broker.guard=off accepts that",
                { { "url", m_config.brokerUrl } });
        m_lastCause = noGuard;
        disconnect(noGuard);
        return false;
    }
    m_heldBack = false;
    logLine(LogLevel::Info, "broker connected", { { "url", m_config.brokerUrl } });
    m_connected = true;
    m_backoff = {};
    m_lastCause.clear();
    m_lastGiven = 0;
    return true;
}

void Publisher::disconnect(const std::string &cause)
{
    m_connected = false;
    m_link.drop();
    m_perhapsSent = std::max(m_perhapsSent, m_lastGiven);
    m_backoff = m_backoff.count() == 0 ? firstBackoff : std::min(m_backoff * 2, longestBackoff);
    if (cause != m_lastCause)
        logLine(LogLevel::Warning, "broker away",
            { { "url", m_config.brokerUrl }, { "cause", cause } });
    m_lastCause = cause;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_inFlight.clear();
}

/// Gives rows to the broker; true when there may be more.
bool Publisher::pass()
{
    std::size_t room = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        room = inFlightLimit - std::min(inFlightLimit, m_inFlight.size());
    }
    if (room == 0)
        return false;
    const auto rows = nextRows(static_cast<int>(room));
    if (!rows.empty() && KVX_FAIL_POINT("publisher/rows taken"))
        throw std::runtime_error("disk I/O error");
    for (const Prepared &prepared : rows) {
        m_lastGiven = prepared.row.id;
        if (prepared.pieces.empty()) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_delivered.push_back(prepared.row.id);
            continue;
        }
        try {
            send(prepared);
            if (KVX_FAIL_POINT("publisher/sent"))
                throw BrokerError("connection reset");
        } catch (const BrokerError &error) {
            disconnect(error.what());
            return false;
        }
    }
    return rows.size() == room;
}

std::vector<Publisher::Prepared> Publisher::nextRows(int maximum)
{
    return inPool<std::vector<Prepared>>(false, [this, maximum](Db &db) {
        std::vector<Prepared> prepared;
        AudienceStore audience(db);
        for (OutboxRow &row : unsentRows(db, m_lastGiven, maximum))
            prepared.push_back(prepare(db, audience, std::move(row)));
        return prepared;
    });
}

Publisher::Prepared Publisher::prepare(Db &db, AudienceStore &audience, OutboxRow row) const
{
    Prepared prepared { std::move(row), {}, {}, {} };
    const OutboxRow &given = prepared.row;
    prepared.command = given.command;
    std::string json = given.content;
    if (json.empty() && given.projectId) {
        // A second "New" would show the project twice; the same record under the other command adds
        // it only where it is missing.
        const bool late = given.id <= m_perhapsSent || m_clock.now() - given.at > newIsLate;
        if (given.command == "New" && late)
            prepared.command = "PermissionChanged";
        const bool array = prepared.command == "PermissionChanged";
        const auto record = m_record(
            db, m_clock.now(), *given.projectId, array ? std::string() : prepared.command);
        if (!record)
            return prepared;
        json = array ? '[' + *record + ']' : *record;
    }
    prepared.pieces = splitContent(json, messageLimit);
    if (given.projectId && m_link.isGuarded())
        prepared.to = audience.of(*given.projectId, given.alsoTo);
    return prepared;
}

void Publisher::send(const Prepared &prepared)
{
    const std::int64_t id = prepared.row.id;
    const auto [place, fresh] = m_numbers.try_emplace(id, m_nextNumber);
    if (fresh)
        m_nextNumber += static_cast<std::int64_t>(prepared.pieces.size());
    std::int64_t number = place->second;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_inFlight.insert(id);
    }
    const auto waiting = std::make_shared<std::size_t>(prepared.pieces.size());
    for (const std::string &piece : prepared.pieces) {
        const std::string text = messageText(prepared.row, { prepared.command, piece }, number++);
        m_link.send(text, prepared.to, [this, id, waiting](bool delivered, const auto &why) {
            if (!delivered) {
                m_link.setBroken("a message was refused: " + why);
            } else if (--*waiting == 0) {
                m_inFlight.erase(id);
                m_delivered.push_back(id);
            }
        });
    }
}

void Publisher::markDelivered()
{
    std::vector<std::int64_t> delivered;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        delivered = m_delivered;
    }
    if (delivered.empty())
        return;
    inPool<bool>(true, [this, &delivered](Db &db) {
        std::int64_t next = std::stoll(metaValue(db, "notifymsg_seq").value_or("1"));
        for (const std::int64_t id : delivered) {
            const auto number = m_numbers.find(id);
            if (number == m_numbers.end()) {
                markSent(db, id, std::nullopt, m_clock.now());
                continue;
            }
            markSent(db, id, number->second, m_clock.now());
            const auto following = std::next(number);
            next = std::max(next, following == m_numbers.end() ? m_nextNumber : following->second);
        }
        setMetaValue(db, "notifymsg_seq", std::to_string(next));
        return true;
    });
    if (KVX_FAIL_POINT("publisher/marked"))
        throw std::runtime_error("disk I/O error");
    for (const std::int64_t id : delivered)
        m_numbers.erase(id);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_delivered.erase(
        m_delivered.begin(), m_delivered.begin() + static_cast<std::ptrdiff_t>(delivered.size()));
}

} // namespace kvx::server
