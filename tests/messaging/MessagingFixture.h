#pragma once

#include "messaging/BlockingReceivers.h"
#include "messaging/KVXCWMessageImpl.h"
#include "support/Broker.h"
#include "support/FakeHost.h"

#include <QJsonObject>
#include <atomic>
#include <cms/Connection.h>
#include <cms/MessageProducer.h>
#include <cms/Session.h>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kvx::test {

/// The broker of all tests here; running and thawed.
Broker &broker();

/// Sends to one topic, as the server does: the text's bytes are the wire's bytes.
class Publisher {
public:
    explicit Publisher(const std::string &topic);
    ~Publisher();

    /// Returns when the broker has the message.
    void send(const std::string &text);
    /// Does not wait for the broker.
    void post(const std::string &text);
    /// A message that is no text.
    void sendPlain();

private:
    std::unique_ptr<cms::Connection> m_connection;
    std::unique_ptr<cms::Session> m_session;
    std::unique_ptr<cms::Topic> m_topic;
    std::unique_ptr<cms::MessageProducer> m_producer;
};

/// Calls a function with each notification, as the type of connection says. As a blocking queued
/// one it is entered as the module's own receivers are. Once destroyed it calls no more; a call
/// under way on a broker thread is waited for.
class Receiver : public QObject {
public:
    using Function = std::function<void(const QJsonObject &)>;
    Receiver(const KVXCWMessage *messager, Qt::ConnectionType type, Function function);
    ~Receiver() override;

private:
    void onNotify(const QJsonObject &message);

    const Qt::ConnectionType m_type;
};

/// Collects notifications from any thread.
class Recorder {
public:
    explicit Recorder(const KVXCWMessage *messager, Qt::ConnectionType type = Qt::DirectConnection);

    int count() const;
    QJsonObject at(int index) const;
    /// Without running the event loop.
    bool waitFor(int count, int limitMs = 5000) const;

private:
    mutable std::mutex m_mutex;
    std::vector<QJsonObject> m_messages;
    Receiver m_receiver;
};

/// Waits for the condition without running the event loop, as a host in a request does.
bool waitBlocked(const std::function<bool()> &condition, int limitMs = 5000);

/// How long the call took, in milliseconds.
int elapsedMs(const std::function<void()> &call);

/// What "within a second" comes to on a loaded machine.
constexpr int SecondMs = 1300;

/// True for ./run test --long.
bool longRun();

class MessagingFixture : public testing::Test {
protected:
    MessagingFixture();

    /// Reads as {"notifymsg_type": "t", "n": number}.
    static std::string message(int number);
    bool start() { return messager->start(); }

    FakeHost host;
    const QString email; ///< of the current user; of this test only
    const QString topic; ///< of this test only
    std::unique_ptr<KVXCWMessageImpl> messager = std::make_unique<KVXCWMessageImpl>();
};

} // namespace kvx::test
