#include "Handles.h"

#include <cms/ConnectionFactory.h>

#include <mutex>

namespace kvx::openwire {

namespace {

class BrokerConnectionFactory : public cms::ConnectionFactory {
public:
    explicit BrokerConnectionFactory(BrokerUri uri)
        : m_uri(std::move(uri))
    {
    }

    cms::Connection *createConnection() override { return createConnection({}, {}, {}); }

    cms::Connection *createConnection(
        const std::string &username, const std::string &password) override
    {
        return createConnection(username, password, {});
    }

    cms::Connection *createConnection(const std::string &username, const std::string &password,
        const std::string &clientId) override;

    void setExceptionListener(cms::ExceptionListener *listener) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_exceptionListener = listener;
    }

    cms::ExceptionListener *getExceptionListener() const override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_exceptionListener;
    }

private:
    const BrokerUri m_uri;
    mutable std::mutex m_mutex; // guards everything below
    Credentials m_credentials;
    cms::ExceptionListener *m_exceptionListener = nullptr;
};

cms::Connection *BrokerConnectionFactory::createConnection(
    const std::string &username, const std::string &password, const std::string &clientId)
{
    if (m_uri.scheme != "tcp" && m_uri.scheme != "nio")
        throw cms::CMSException("No Matching Factory Registered for format := " + m_uri.scheme);
    if (m_uri.host.empty() || m_uri.port == 0)
        throw cms::CMSException("The broker's address names no host or no port: " + m_uri.text);
    Credentials credentials;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!username.empty())
            m_credentials.userName = username;
        if (!password.empty())
            m_credentials.password = password;
        credentials = m_credentials;
    }
    auto connection = std::make_unique<BrokerConnection>(ConnectionState::open(m_uri, credentials));
    connection->setExceptionListener(getExceptionListener());
    if (!clientId.empty())
        connection->setClientID(clientId);
    return connection.release();
}

} // namespace

} // namespace kvx::openwire

cms::ConnectionFactory *cms::ConnectionFactory::createCMSConnectionFactory(
    const std::string &brokerURI)
{
    return new kvx::openwire::BrokerConnectionFactory(kvx::openwire::BrokerUri::parse(brokerURI));
}
