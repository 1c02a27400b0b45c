#include "ScriptedCms.h"

#include "Destinations.h"

#include <activemq/library/ActiveMQCPP.h>
#include <algorithm>
#include <cms/Connection.h>
#include <cms/ConnectionFactory.h>
#include <cms/MessageConsumer.h>
#include <cms/MessageProducer.h>
#include <cms/Session.h>

namespace kvx::test {

ScriptedCms &ScriptedCms::instance()
{
    static ScriptedCms script;
    return script;
}

void ScriptedCms::reset()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_steps.clear();
    m_taken = 0;
    m_actions.clear();
    m_messageListener = nullptr;
    m_exceptionListener = nullptr;
}

void ScriptedCms::onStep(const std::string &word, std::function<void()> action)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_actions[word] = std::move(action);
}

std::vector<std::string> ScriptedCms::steps() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_steps;
}

std::vector<std::string> ScriptedCms::takeSteps()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::vector<std::string> taken(m_steps.begin() + std::ptrdiff_t(m_taken), m_steps.end());
    m_taken = m_steps.size();
    return taken;
}

int ScriptedCms::count(const std::string &step) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return int(std::count(m_steps.begin(), m_steps.end(), step));
}

cms::MessageListener *ScriptedCms::messageListener() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_messageListener;
}

cms::ExceptionListener *ScriptedCms::exceptionListener() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_exceptionListener;
}

void ScriptedCms::step(const std::string &text)
{
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_steps.push_back(text);
        const auto found = m_actions.find(text.substr(0, text.find(' ')));
        if (found != m_actions.end())
            action = found->second;
    }
    if (action)
        action();
}

void ScriptedCms::setMessageListener(cms::MessageListener *listener)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_messageListener = listener;
}

void ScriptedCms::setExceptionListener(cms::ExceptionListener *listener)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_exceptionListener = listener;
}

namespace {

void step(const std::string &text)
{
    ScriptedCms::instance().step(text);
}

class ScriptedTopic : public openwire::TopicDestination {
public:
    explicit ScriptedTopic(const std::string &name)
        : TopicDestination({ cms::Destination::TOPIC, name })
    {
    }
    ~ScriptedTopic() override { step("delete topic"); }
};

class ScriptedProducer : public cms::MessageProducer {
public:
    ~ScriptedProducer() override { step("delete producer"); }
    void close() override { }
    void send(cms::Message *) override { step("send"); }
    void send(cms::Message *, cms::AsyncCallback *) override { step("send"); }
    void send(cms::Message *, int, int, long long) override { step("send"); }
    void send(cms::Message *, int, int, long long, cms::AsyncCallback *) override { step("send"); }
    void send(const cms::Destination *, cms::Message *) override { step("send"); }
    void send(const cms::Destination *, cms::Message *, cms::AsyncCallback *) override
    {
        step("send");
    }
    void send(const cms::Destination *, cms::Message *, int, int, long long) override
    {
        step("send");
    }
    void send(const cms::Destination *, cms::Message *, int, int, long long,
        cms::AsyncCallback *) override
    {
        step("send");
    }
    void setDeliveryMode(int) override { }
    int getDeliveryMode() const override { return 0; }
    void setPriority(int) override { }
    int getPriority() const override { return 4; }
    void setTimeToLive(long long) override { }
    long long getTimeToLive() const override { return 0; }
    void setDisableMessageID(bool) override { }
    bool getDisableMessageID() const override { return false; }
    void setDisableMessageTimeStamp(bool) override { }
    bool getDisableMessageTimeStamp() const override { return false; }
};

class ScriptedConsumer : public cms::MessageConsumer {
public:
    ~ScriptedConsumer() override { step("delete consumer"); }
    void start() override { }
    void stop() override { }
    void close() override { }
    cms::Message *receive() override { return nullptr; }
    cms::Message *receive(int) override { return nullptr; }
    cms::Message *receiveNoWait() override { return nullptr; }
    void setMessageListener(cms::MessageListener *listener) override
    {
        if (listener)
            step("messageListener");
        ScriptedCms::instance().setMessageListener(listener);
    }
    cms::MessageListener *getMessageListener() const override { return nullptr; }
    std::string getMessageSelector() const override { return {}; }
};

class ScriptedSession : public cms::Session {
public:
    ~ScriptedSession() override { step("delete session"); }
    void start() override { }
    void stop() override { }
    void close() override { }
    cms::MessageConsumer *createConsumer(const cms::Destination *) override
    {
        step("consumer");
        return new ScriptedConsumer;
    }
    cms::MessageConsumer *createConsumer(const cms::Destination *to, const std::string &) override
    {
        return createConsumer(to);
    }
    cms::MessageConsumer *createConsumer(
        const cms::Destination *to, const std::string &, bool) override
    {
        return createConsumer(to);
    }
    cms::MessageProducer *createProducer(const cms::Destination *) override
    {
        step("producer");
        return new ScriptedProducer;
    }
    cms::Queue *createQueue(const std::string &) override { return nullptr; }
    cms::Topic *createTopic(const std::string &name) override
    {
        step("topic " + name);
        return new ScriptedTopic(name);
    }
    cms::Message *createMessage() override { return nullptr; }
    cms::TextMessage *createTextMessage() override { return nullptr; }
    cms::TextMessage *createTextMessage(const std::string &) override { return nullptr; }
    AcknowledgeMode getAcknowledgeMode() const override { return AUTO_ACKNOWLEDGE; }
    bool isTransacted() const override { return false; }
};

class ScriptedConnection : public cms::Connection {
public:
    ~ScriptedConnection() override { step("delete connection"); }
    void start() override { step("start"); }
    void stop() override { }
    void close() override { step("close"); }
    cms::Session *createSession() override { return createSession(cms::Session::AUTO_ACKNOWLEDGE); }
    cms::Session *createSession(cms::Session::AcknowledgeMode mode) override
    {
        step("session " + std::to_string(int(mode)));
        return new ScriptedSession;
    }
    std::string getClientID() const override { return {}; }
    void setClientID(const std::string &id) override { step("clientId " + id); }
    cms::ExceptionListener *getExceptionListener() const override { return nullptr; }
    void setExceptionListener(cms::ExceptionListener *listener) override
    {
        if (listener)
            step("exceptionListener");
        ScriptedCms::instance().setExceptionListener(listener);
    }
};

class ScriptedFactory : public cms::ConnectionFactory {
public:
    ~ScriptedFactory() override { step("delete factory"); }
    cms::Connection *createConnection() override { return createConnection({}, {}); }
    cms::Connection *createConnection(const std::string &user, const std::string &password) override
    {
        step("connect " + user + ' ' + password);
        return new ScriptedConnection;
    }
    cms::Connection *createConnection(
        const std::string &user, const std::string &password, const std::string &) override
    {
        return createConnection(user, password);
    }
    void setExceptionListener(cms::ExceptionListener *) override { }
    cms::ExceptionListener *getExceptionListener() const override { return nullptr; }
};

} // namespace

} // namespace kvx::test

// In place of the real library's.

cms::ConnectionFactory *cms::ConnectionFactory::createCMSConnectionFactory(const std::string &uri)
{
    kvx::test::step("factory " + uri);
    return new kvx::test::ScriptedFactory;
}

namespace activemq::library {

void ActiveMQCPP::initializeLibrary()
{
    kvx::test::step("initialize");
}

void ActiveMQCPP::initializeLibrary(int, char **)
{
    initializeLibrary();
}

void ActiveMQCPP::shutdownLibrary()
{
    kvx::test::step("shutdown");
}

} // namespace activemq::library
