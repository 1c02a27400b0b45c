#include "http/ConnectionLimits.h"
#include "base/Config.h"
#include "base/Log.h"

#include <algorithm>

namespace kvx::server {

namespace {

/// A refusal keeps its socket for up to two seconds, beyond the limits.
constexpr int refusedAtOnce = 32;

} // namespace

ConnectionLimits::ConnectionLimits(const Config &config)
    : m_config(config)
{
}

void ConnectionLimits::Filling::decrease(int limit)
{
    --count;
    told = told && count > limit / 2;
}

ConnectionLimits::Verdict ConnectionLimits::admit(const std::string &peer)
{
    const auto &proxies = m_config.trustedProxies;
    const bool proxy = std::find(proxies.begin(), proxies.end(), peer) != proxies.end();
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_all.count >= m_config.connectionLimit)
        return refuse(Verdict::ServerFull, m_all, "limits.connections", peer);
    Filling &ofPeer = m_perAddress[peer];
    if (!proxy && ofPeer.count >= m_config.perAddressLimit)
        return refuse(Verdict::AddressFull, ofPeer, "limits.perAddress", peer);
    ++ofPeer.count;
    ++m_all.count;
    return Verdict::Admitted;
}

ConnectionLimits::Verdict ConnectionLimits::refuse(
    Verdict verdict, Filling &filling, const char *limit, const std::string &peer)
{
    if (!filling.told) {
        filling.told = true;
        logLine(LogLevel::Warning, "connections refused",
            { { "limit", limit }, { "number", std::to_string(filling.count) },
                { "address", peer } });
    }
    if (m_beingRefused >= refusedAtOnce)
        return Verdict::Dropped;
    ++m_beingRefused;
    return verdict;
}

void ConnectionLimits::leave(const std::string &peer, Verdict verdict)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (verdict != Verdict::Admitted) {
        --m_beingRefused;
        return;
    }
    m_all.decrease(m_config.connectionLimit);
    const auto ofPeer = m_perAddress.find(peer);
    ofPeer->second.decrease(m_config.perAddressLimit);
    if (ofPeer->second.count == 0)
        m_perAddress.erase(ofPeer);
}

} // namespace kvx::server
