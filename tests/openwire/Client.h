#pragma once

#include <cms/ConnectionFactory.h>
#include <cms/ExceptionListener.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kvx::test {

/// Something that is waited for.
class Signal {
public:
    void set();
    void reset();
    bool isSet() const;
    /// False when it was not set within the limit.
    bool wait(std::chrono::milliseconds limit = std::chrono::seconds(20));

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_set = false;
};

/// Keeps the texts that arrive.
class Recorder : public cms::MessageListener {
public:
    void onMessage(const cms::Message *message) override;
    bool waitFor(std::size_t count, std::chrono::seconds limit = std::chrono::seconds(20));
    std::vector<std::string> texts() const;
    /// Called on the listener's thread for each message, before its text is kept.
    std::function<void()> onArrival;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_texts;
};

/// Keeps the failures that are reported.
class Failures : public cms::ExceptionListener {
public:
    void onException(const cms::CMSException &ex) override;
    bool waitFor(std::size_t count, std::chrono::seconds limit = std::chrono::seconds(20));
    std::vector<std::string> texts() const;
    std::function<void()> onFailure;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_texts;
};

/// A connection with all that hangs on it, in the order in which it may be deleted.
struct Client {
    explicit Client(const std::string &uri, const std::string &clientId = {},
        const std::string &user = {}, const std::string &password = {});

    void open(const std::string &topicName);
    void publish(const std::string &text);
    /// The next text; fails by throwing std::runtime_error after 20 s.
    std::string receiveText();

    std::unique_ptr<cms::ConnectionFactory> factory;
    std::unique_ptr<cms::Connection> connection;
    std::unique_ptr<cms::Session> session;
    std::unique_ptr<cms::Topic> topic;
    std::unique_ptr<cms::MessageConsumer> consumer;
    std::unique_ptr<cms::MessageProducer> producer;
};

/// The text of the CMSException that action throws, or "" when it throws none.
std::string failureOf(const std::function<void()> &action);

/// How long action took.
std::chrono::milliseconds timeOf(const std::function<void()> &action);

} // namespace kvx::test
