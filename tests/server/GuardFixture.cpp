#include "GuardFixture.h"

#include <activemq/library/ActiveMQCPP.h>
#include <atomic>
#include <cms/Connection.h>
#include <cms/ConnectionFactory.h>
#include <cms/DeliveryMode.h>
#include <cms/ExceptionListener.h>
#include <cms/MessageConsumer.h>
#include <cms/MessageListener.h>
#include <cms/MessageProducer.h>
#include <cms/Session.h>
#include <cms/TextMessage.h>
#include <condition_variable>
#include <mutex>
#include <stdexcept>

namespace kvx::test {

namespace {

constexpr char guid[] = "\"{4b1d0c52-7e61-4c1f-9f0a-2d7b8a3c5e10}\"";

} // namespace

class BrokerClient::Impl : public cms::MessageListener, public cms::ExceptionListener {
public:
    Impl(const std::string &brokerUri, const std::string &clientId)
    {
        static const bool started = [] {
            activemq::library::ActiveMQCPP::initializeLibrary();
            return true;
        }();
        static_cast<void>(started);
        const std::unique_ptr<cms::ConnectionFactory> factory(
            cms::ConnectionFactory::createCMSConnectionFactory(brokerUri));
        connection.reset(factory->createConnection("", ""));
        connection->setClientID(clientId);
        connection->setExceptionListener(this);
        session.reset(connection->createSession(cms::Session::AUTO_ACKNOWLEDGE));
        topic.reset(session->createTopic("com.orvane.kvx"));
        producer.reset(session->createProducer(topic.get()));
        consumer.reset(session->createConsumer(topic.get()));
        consumer->setMessageListener(this);
        connection->start();
    }

    ~Impl() override
    {
        try {
            connection->setExceptionListener(nullptr);
            connection->close();
        } catch (const cms::CMSException &) {
            // It was cut off before.
        }
    }

    void onMessage(const cms::Message *message) override
    {
        const auto *text = dynamic_cast<const cms::TextMessage *>(message);
        const std::lock_guard<std::mutex> lock(mutex);
        texts.push_back(text ? text->getText() : "not a text");
        ids.push_back(message->getCMSMessageID());
        changed.notify_all();
    }

    void onException(const cms::CMSException &) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        cut = true;
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> texts;
    std::vector<std::string> ids;
    bool cut = false;
    std::unique_ptr<cms::Connection> connection;
    std::unique_ptr<cms::Session> session;
    std::unique_ptr<cms::Topic> topic;
    std::unique_ptr<cms::MessageProducer> producer;
    std::unique_ptr<cms::MessageConsumer> consumer;
};

BrokerClient::BrokerClient(const std::string &brokerUri, const std::string &clientId)
{
    try {
        m_impl = std::make_unique<Impl>(brokerUri, clientId);
    } catch (const cms::CMSException &error) {
        throw std::runtime_error(error.getMessage());
    }
}

BrokerClient::~BrokerClient() = default;

void BrokerClient::publish(const std::string &text, const std::string &to)
{
    const std::unique_ptr<cms::TextMessage> message(m_impl->session->createTextMessage(text));
    if (!to.empty())
        message->setStringProperty("kvxTo", to);
    // A persistent message is the one whose sender waits.
    m_impl->producer->send(message.get(), cms::DeliveryMode::PERSISTENT, 4, 0);
}

void BrokerClient::post(const std::string &text)
{
    const std::unique_ptr<cms::TextMessage> message(m_impl->session->createTextMessage(text));
    m_impl->producer->send(message.get(), cms::DeliveryMode::NON_PERSISTENT, 4, 0);
}

std::vector<std::string> BrokerClient::awaitText(const std::string &text, int seconds)
{
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    m_impl->changed.wait_for(lock, std::chrono::seconds(seconds), [&] {
        for (const std::string &one : m_impl->texts) {
            if (one.find(text) != std::string::npos)
                return true;
        }
        return false;
    });
    return m_impl->texts;
}

std::vector<std::string> BrokerClient::messageIds() const
{
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    return m_impl->ids;
}

bool BrokerClient::isCut() const
{
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    return m_impl->cut;
}

bool BrokerClient::awaitCut(int seconds)
{
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    return m_impl->changed.wait_for(
        lock, std::chrono::seconds(seconds), [this] { return m_impl->cut; });
}

std::string refusal(const std::string &brokerUri, const std::string &clientId)
{
    try {
        const BrokerClient client(brokerUri, clientId);
        return {};
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

ServerGuard::ServerGuard(std::map<std::string, std::string> settings)
    : broker(guarded())
    , server(withAccount(std::move(settings)))
{
    server.addUser(anna, "Anna Weiss", password);
    server.addUser(ben, "Ben Ito", password);
    awaitGuard(server);
    // The new users were announced too; those messages are out before a test begins.
    const auto session = login(admin);
    const auto client = listen(admin);
    announceToAll();
    EXPECT_FALSE(client->awaitText(numbered(1)).empty());
    logout(*session, admin);
}

Broker::Options ServerGuard::guarded()
{
    Broker::Options options;
    options.guard = true;
    return options;
}

ServerProcess::Options ServerGuard::withAccount(std::map<std::string, std::string> settings) const
{
    ServerProcess::Options options;
    options.brokerUrl = broker.uri();
    options.settings = std::move(settings);
    options.settings.emplace("broker.user", Broker::guardedServer.name);
    options.settings.emplace("broker.password", Broker::guardedServer.password);
    return options;
}

void ServerGuard::awaitGuard(const ServerProcess &which) const
{
    HttpClient health(which.adminUrl());
    const bool good = eventually([&] {
        const std::string body = health.get("/readyz").body;
        return body.find("guard: ok") != std::string::npos
            && body.find("broker: ok") != std::string::npos;
    });
    EXPECT_TRUE(good) << which.logText() << broker.logText();
}

std::unique_ptr<HttpClient> ServerGuard::login(
    const std::string &email, const std::vector<std::string> &headers) const
{
    auto client = std::make_unique<HttpClient>(server.url());
    const std::string word = email == admin ? server.adminPassword() : password;
    const HttpReply reply = client->postTo("/kvx/service",
        jsonObject({ { "service", "\"login\"" }, { "Email", jsonQuoted(email) },
            { "Password", jsonQuoted(word) }, { "Version", "\"\"" }, { "FingerPrint", "\"\"" },
            { "serverApiVersion", "\"\"" }, { "productType", "\"\"" } }),
        "application/json", headers);
    EXPECT_EQ(reply.statusCode(), 1) << reply.json();
    return client;
}

std::unique_ptr<BrokerClient> ServerGuard::listen(const std::string &clientId) const
{
    return std::make_unique<BrokerClient>(broker.uri(), clientId);
}

void ServerGuard::logout(HttpClient &session, const std::string &email) const
{
    ask(session, email, "logout", {});
}

void ServerGuard::ask(HttpClient &session, const std::string &email, const std::string &service,
    std::vector<std::pair<std::string, std::string>> members)
{
    members.emplace_back("service", jsonQuoted(service));
    members.emplace_back("Email", jsonQuoted(email));
    const HttpReply reply = session.post(jsonObject(members));
    EXPECT_EQ(reply.statusCode(), 1) << service << ' ' << reply.json();
}

void ServerGuard::newProject(HttpClient &session, const std::string &email, const std::string &name)
{
    ask(session, email, "newproject",
        { { "Type", "\"Tender\"" }, { "Name", jsonQuoted(name) }, { "ProjectGUID", guid },
            { "CreatorName", "\"Anna Weiss\"" }, { "CreatorEmail", jsonQuoted(email) },
            { "Amount", "\"0.00\"" }, { "ProjectState", "0" } });
}

void ServerGuard::rename(HttpClient &session, const std::string &email, const std::string &oldName,
    const std::string &newName)
{
    ask(session, email, "renameproject",
        { { "OldName", jsonQuoted(oldName) }, { "NewName", jsonQuoted(newName) },
            { "ProjectGUID", guid } });
}

void ServerGuard::permit(HttpClient &session, const std::vector<std::string> &emails)
{
    std::string rows;
    for (const std::string &email : emails)
        rows += (rows.empty() ? "" : ",") + std::string("{\"Email\":") + jsonQuoted(email)
            + R"(,"ProjectRW":1,"Money":1,"Addendum":1,"Report":1})";
    ask(session, anna, "projectpermission",
        { { "ProjectGUID", guid }, { "userperms", '[' + rows + ']' } });
}

std::string ServerGuard::numbered(int n)
{
    constexpr int newUsers = 2;
    return "\"notifymsg_seq\":" + std::to_string(newUsers + n) + ',';
}

void ServerGuard::announceToAll()
{
    m_assigned = !m_assigned;
    const char *verb = m_assigned ? "assign" : "unassign";
    ASSERT_EQ(server.command({ "role", verb, "Reviewer", "admin@localhost" }).exitCode, 0);
}

} // namespace kvx::test
