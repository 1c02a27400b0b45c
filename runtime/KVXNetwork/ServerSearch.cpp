#include "ServerSearch.h"

#include "Exchange.h"
#include "ServerAddress.h"

#include <algorithm>
#include <utility>

namespace kvx {

namespace {

const size_t MostProbes = 64;
const int ProbeTime = 1500; // ms
const qint64 LargestAnswer = 64 * 1024;
const int ProbePoll = 1000; // ms

} // namespace

struct ServerSearch::Probe {
    Probe(const QString &asked, const ServerAddress &parsed)
        : address(asked)
        , server(parsed.text())
        , exchange(parsed.serverUrl(), { ProbeTime, ProbeTime, 0, LargestAnswer })
        , easy(curl_easy_init())
    {
    }
    ~Probe() { curl_easy_cleanup(easy); }
    Probe(const Probe &) = delete;
    Probe &operator=(const Probe &) = delete;

    const QString address;
    const QString server;
    Exchange exchange;
    CURL *const easy;
};

ServerSearch::ServerSearch(QStringList addresses, int port, KVXNetworkProxy proxy)
    : m_addresses(std::move(addresses))
    , m_port(port)
    , m_proxy(std::move(proxy))
    , m_multi(curl_multi_init())
{
}

ServerSearch::~ServerSearch()
{
    for (const auto &probe : m_probes)
        curl_multi_remove_handle(m_multi, probe->easy);
    m_probes.clear();
    curl_multi_cleanup(m_multi);
}

void ServerSearch::run(void *receiver, KVXNetwork::SearchFunction progress)
{
    m_receiver = receiver;
    m_progress = progress;
    for (;;) {
        startProbes();
        if (m_cancelled || m_probes.empty())
            return;
        int running = 0;
        if (curl_multi_perform(m_multi, &running) != CURLM_OK)
            return;
        int left = 0;
        while (const CURLMsg *message = curl_multi_info_read(m_multi, &left)) {
            if (message->msg == CURLMSG_DONE)
                finish(message->easy_handle, message->data.result);
            if (m_cancelled)
                return;
        }
        if (running > 0)
            curl_multi_poll(m_multi, nullptr, 0, ProbePoll, nullptr);
    }
}

void ServerSearch::cancel()
{
    m_cancelled = true;
    curl_multi_wakeup(m_multi);
}

void ServerSearch::startProbes()
{
    while (m_next < m_addresses.size() && m_probes.size() < MostProbes && !m_cancelled) {
        const QString &address = m_addresses[m_next++];
        if (!start(address))
            report(address);
    }
}

bool ServerSearch::start(const QString &address)
{
    const ServerAddress parsed(address, m_port);
    if (!parsed.isValid())
        return false;
    auto probe = std::make_unique<Probe>(address, parsed);
    probe->exchange.mayRepeat();
    if (!probe->exchange.prepare(probe->easy, m_proxy)
        || curl_multi_add_handle(m_multi, probe->easy) != CURLM_OK)
        return false;
    m_probes.push_back(std::move(probe));
    return true;
}

void ServerSearch::finish(CURL *easy, CURLcode result)
{
    const auto found = std::find_if(m_probes.begin(), m_probes.end(),
        [easy](const auto &probe) { return probe->easy == easy; });
    if (found == m_probes.end())
        return;
    curl_multi_remove_handle(m_multi, easy);
    const std::unique_ptr<Probe> probe = std::move(*found);
    m_probes.erase(found);
    probe->exchange.finish(easy, result);
    const ServerAnswer answer = probe->exchange.status() == 200
        ? ServerAnswer::fromReply(probe->exchange.body())
        : ServerAnswer();
    report(answer.valid ? QString(probe->server + QLatin1Char(' ') + answer.name).trimmed()
                        : probe->address);
}

void ServerSearch::report(const QString &text)
{
    ++m_done;
    if (m_progress)
        m_progress(m_receiver, text, m_done, m_addresses.size());
}

} // namespace kvx
