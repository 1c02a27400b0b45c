#pragma once

#include "ConnectionState.h"
#include "Destinations.h"
#include "SessionState.h"

#include <cms/Connection.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

namespace kvx::openwire {

// What the caller of the interface holds and deletes. Each only refers to state that is shared with
// the threads, so the order in which handles are deleted does not matter.

class BrokerConnection : public cms::Connection {
public:
    explicit BrokerConnection(std::shared_ptr<ConnectionState> state);
    ~BrokerConnection() override;

    void start() override;
    void stop() override;
    void close() override;
    cms::Session *createSession() override;
    cms::Session *createSession(cms::Session::AcknowledgeMode ackMode) override;
    std::string getClientID() const override;
    void setClientID(const std::string &clientID) override;
    cms::ExceptionListener *getExceptionListener() const override;
    void setExceptionListener(cms::ExceptionListener *listener) override;

private:
    std::shared_ptr<ConnectionState> state() const;
    std::shared_ptr<ConnectionState> openAnew(const std::shared_ptr<ConnectionState> &lost);

    mutable std::mutex m_mutex; // guards everything below
    std::shared_ptr<ConnectionState> m_state;
    bool m_closed = false;
};

class BrokerSession : public cms::Session {
public:
    BrokerSession(std::shared_ptr<SessionState> state, AcknowledgeMode ackMode);
    ~BrokerSession() override;

    void start() override;
    void stop() override;
    void close() override;
    cms::MessageConsumer *createConsumer(const cms::Destination *destination) override;
    cms::MessageConsumer *createConsumer(
        const cms::Destination *destination, const std::string &selector) override;
    cms::MessageConsumer *createConsumer(
        const cms::Destination *destination, const std::string &selector, bool noLocal) override;
    cms::MessageProducer *createProducer(const cms::Destination *destination) override;
    cms::Queue *createQueue(const std::string &queueName) override;
    cms::Topic *createTopic(const std::string &topicName) override;
    cms::Message *createMessage() override;
    cms::TextMessage *createTextMessage() override;
    cms::TextMessage *createTextMessage(const std::string &text) override;
    AcknowledgeMode getAcknowledgeMode() const override;
    bool isTransacted() const override;

private:
    const std::shared_ptr<SessionState> m_state;
    const AcknowledgeMode m_ackMode;
};

class BrokerConsumer : public cms::MessageConsumer {
public:
    BrokerConsumer(std::shared_ptr<SessionState> session, SessionState::Consumer consumer);
    ~BrokerConsumer() override;

    void start() override;
    void stop() override;
    void close() override;
    cms::Message *receive() override;
    cms::Message *receive(int millisecs) override;
    cms::Message *receiveNoWait() override;
    void setMessageListener(cms::MessageListener *listener) override;
    cms::MessageListener *getMessageListener() const override;
    std::string getMessageSelector() const override;

private:
    const std::shared_ptr<SessionState> m_session;
    const SessionState::Consumer m_consumer;
};

class BrokerProducer : public cms::MessageProducer {
public:
    /// Registers the producer with the broker.
    BrokerProducer(
        std::shared_ptr<SessionState> session, std::optional<DestinationName> destination);
    ~BrokerProducer() override;

    void close() override;
    void send(cms::Message *message) override;
    void send(cms::Message *message, cms::AsyncCallback *onComplete) override;
    void send(cms::Message *message, int deliveryMode, int priority, long long timeToLive) override;
    void send(cms::Message *message, int deliveryMode, int priority, long long timeToLive,
        cms::AsyncCallback *onComplete) override;
    void send(const cms::Destination *destination, cms::Message *message) override;
    void send(const cms::Destination *destination, cms::Message *message,
        cms::AsyncCallback *onComplete) override;
    void send(const cms::Destination *destination, cms::Message *message, int deliveryMode,
        int priority, long long timeToLive) override;
    void send(const cms::Destination *destination, cms::Message *message, int deliveryMode,
        int priority, long long timeToLive, cms::AsyncCallback *onComplete) override;
    void setDeliveryMode(int mode) override { m_deliveryMode = mode; }
    int getDeliveryMode() const override { return m_deliveryMode; }
    void setPriority(int priority) override { m_priority = priority; }
    int getPriority() const override { return m_priority; }
    void setTimeToLive(long long time) override { m_timeToLive = time; }
    long long getTimeToLive() const override { return m_timeToLive; }
    void setDisableMessageID(bool value) override { m_disableId = value; }
    bool getDisableMessageID() const override { return m_disableId; }
    void setDisableMessageTimeStamp(bool value) override { m_disableTime = value; }
    bool getDisableMessageTimeStamp() const override { return m_disableTime; }

private:
    struct Options {
        bool persistent;
        int priority;
        long long timeToLive;
        cms::AsyncCallback *onComplete;
    };

    const DestinationName &ownDestination() const;
    DestinationName givenDestination(const cms::Destination *destination) const;
    Options defaults(cms::AsyncCallback *onComplete) const;
    void send(const DestinationName &destination, cms::Message *message, const Options &options);

    const std::shared_ptr<SessionState> m_session;
    const std::optional<DestinationName> m_destination;
    const ProducerId m_id;
    std::atomic<std::int64_t> m_lastSequence { 0 };
    std::atomic<int> m_deliveryMode;
    std::atomic<int> m_priority { 4 };
    std::atomic<long long> m_timeToLive { 0 };
    std::atomic<bool> m_disableId { false };
    std::atomic<bool> m_disableTime { false };
    std::atomic<bool> m_closed { false };
};

} // namespace kvx::openwire
