#include "notify/CurrentLink.h"

namespace kvx::server {

CurrentLink::CurrentLink(const Config &config, BrokerLink::Topic topic, std::mutex &mutex,
    std::condition_variable &changed)
    : m_config(config)
    , m_topic(topic)
    , m_mutex(mutex)
    , m_changed(changed)
{
}

void CurrentLink::connect()
{
    std::uint64_t age = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        age = ++m_age;
        m_broken = false;
    }
    m_link = std::make_unique<BrokerLink>(m_config, m_topic, [this, age](const std::string &cause) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (age != m_age)
                return;
            setBroken(cause);
        }
        m_changed.notify_all();
    });
}

void CurrentLink::drop()
{
    m_link.reset(); // may wait for a report, which takes the mutex
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_broken = false;
    ++m_age;
}

void CurrentLink::send(
    const std::string &text, const std::optional<std::string> &to, BrokerLink::Receipt receipt)
{
    m_link->send(text, to,
        [this, age = m_age, receipt = std::move(receipt)](bool delivered, const std::string &why) {
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                if (age != m_age)
                    return;
                receipt(delivered, why);
            }
            m_changed.notify_all();
        });
}

void CurrentLink::setBroken(const std::string &cause)
{
    m_broken = true;
    m_cause = cause;
}

} // namespace kvx::server
