#include "notify/GuardFeed.h"
#include "base/Config.h"
#include "base/Log.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/SessionStore.h"

#include <algorithm>
#include <future>

namespace kvx::server {

namespace {

constexpr std::chrono::seconds tellInterval { 1 };
constexpr std::chrono::seconds receiptLimit { 5 };
constexpr std::chrono::milliseconds firstRetry { 100 };
/// The guard lets nobody in before it has heard of the sessions, so a broker that comes back is
/// found soon.
constexpr std::chrono::milliseconds longestRetry { 1000 };

} // namespace

GuardFeed::GuardFeed(const Config &config, const Clock &clock, DbPool &pool)
    : BrokerWorker(config, BrokerLink::Topic::Guard)
    , m_config(config)
    , m_clock(clock)
    , m_pool(pool)
{
    begin([this] { run(); });
}

GuardFeed::~GuardFeed()
{
    end();
}

void GuardFeed::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        m_woken = false;
        lock.unlock();
        try {
            if (!m_link.isThere())
                connect();
            if (m_link.isGuarded())
                tell();
        } catch (const std::exception &error) {
            drop(error.what());
        }
        lock.lock();
        const auto pause = m_link.isThere() ? std::chrono::milliseconds(tellInterval) : m_backoff;
        m_changed.wait_for(lock, pause,
            [this] { return m_stopping || m_link.isBroken() || (m_woken && m_link.isThere()); });
        if (m_link.isBroken()) {
            const std::string cause = m_link.cause();
            lock.unlock();
            drop(cause);
            lock.lock();
        }
    }
    m_state = State::Away;
}

void GuardFeed::connect()
{
    m_link.connect();
    m_backoff = {};
    if (m_link.isGuarded())
        return;
    m_state = State::None;
    if (m_lastWord != "none" && m_config.brokerGuard != "off")
        logLine(LogLevel::Warning, "broker without guard: whoever reaches it can listen",
            { { "url", m_config.brokerUrl } });
    m_lastWord = "none";
}

/// Returns when the guard has the list: the next one must be read later than this one arrived.
void GuardFeed::tell()
{
    const std::string text = sessions();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_received = false;
    lock.unlock();
    m_link.send(text, {}, [this](bool delivered, const std::string &cause) {
        if (delivered)
            m_received = true;
        else
            m_link.setBroken(cause);
    });
    lock.lock();
    const bool answered = m_changed.wait_for(
        lock, receiptLimit, [this] { return m_received || m_link.isBroken() || m_stopping; });
    if (!answered)
        throw BrokerError("the broker's guard does not answer");
    if (!m_received)
        return;
    lock.unlock();
    m_state = State::Ok;
    if (m_lastWord != "ok")
        logLine(LogLevel::Info, "guard connected", { { "url", m_config.brokerUrl } });
    m_lastWord = "ok";
}

void GuardFeed::drop(const std::string &cause)
{
    m_link.drop();
    const bool wasTold = m_state.exchange(State::Away) == State::Ok;
    m_backoff = m_backoff.count() == 0 ? firstRetry : std::min(m_backoff * 2, longestRetry);
    if (wasTold)
        logLine(
            LogLevel::Warning, "guard away", { { "url", m_config.brokerUrl }, { "cause", cause } });
    m_lastWord = "away";
}

std::string GuardFeed::sessions()
{
    std::promise<std::string> promise;
    std::future<std::string> future = promise.get_future();
    m_pool.read([this, &promise](Db &db) {
        try {
            std::string text = "sessions " + m_config.brokerGuard + '\n';
            for (const LiveSession &session : liveSessions(db, m_config, m_clock.now()))
                text += session.email + '\t' + session.address + '\n';
            promise.set_value(std::move(text));
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
    });
    return future.get();
}

} // namespace kvx::server
