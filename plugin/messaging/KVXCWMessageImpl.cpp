#include "messaging/KVXCWMessageImpl.h"

#include "frame/Log.h"
#include "login/CurrentUser.h"
#include "messaging/BrokerLink.h"
#include "messaging/ModifiedUtf8.h"
#include "messaging/TypeName.h"

#include <KVXNetwork/KVXNetworkLog.h>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <cms/CMSException.h>
#include <cms/ConnectionFactory.h>
#include <cms/TextMessage.h>
#include <iostream>

namespace {

/// For stop, a second start and the destruction each: the user must not notice more than a second.
kvx::LinkCloser::Deadline closeDeadline()
{
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(900);
}

QString shortened(const QJsonObject &object)
{
    const QString text = QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
    return text.size() > 300 ? text.left(300) + QLatin1String("...") : text;
}

} // namespace

KVXCWMessageImpl::KVXCWMessageImpl()
    : m_notifier(this)
{
}

KVXCWMessageImpl::~KVXCWMessageImpl()
{
    // A thread that is still inside notify after this waits for a receiver, where it does not
    // touch the sender; nobody enters any more.
    const auto deadline = closeDeadline();
    try {
        if (m_link)
            releaseLink(deadline);
    } catch (const std::exception &) {
        kvx::LinkCloser::closeHere(std::move(m_link), deadline);
    }
    m_notifier.leave(deadline);
}

bool KVXCWMessageImpl::start()
{
    try {
        const std::unique_ptr<cms::ConnectionFactory> factory(
            cms::ConnectionFactory::createCMSConnectionFactory(brokerURI().toStdString()));
        std::unique_ptr<cms::Connection> connection(
            factory->createConnection(userName().toStdString(), password().toStdString()));
        if (m_link)
            releaseLink(closeDeadline()); // the broker knows the client ID until then
        m_link = std::make_shared<kvx::BrokerLink>(*this, *this, std::move(connection));

        m_link->connection->setClientID(kvx::currentUserEmail().toStdString());
        m_link->connection->setExceptionListener(&m_link->listener);
        m_link->session.reset(m_link->connection->createSession(cms::Session::AUTO_ACKNOWLEDGE));
        m_link->destination.reset(m_link->session->createTopic(topic().toStdString()));
        m_link->producer.reset(m_link->session->createProducer(m_link->destination.get()));
        m_link->consumer.reset(m_link->session->createConsumer(m_link->destination.get()));
        m_link->consumer->setMessageListener(&m_link->listener);
        m_link->connection->start();
        return true;
    } catch (const cms::CMSException &error) {
        onException(error);
    } catch (const std::exception &error) {
        onException(cms::CMSException(error.what()));
    }
    return false;
}

bool KVXCWMessageImpl::stop()
{
    if (!m_link)
        return true;
    try {
        beginClosing();
    } catch (const std::exception &error) {
        onException(cms::CMSException(error.what()));
        return false;
    }
    if (!m_closer->waitUntilClosed(closeDeadline()))
        return true; // it goes on by itself
    if (const auto failure = m_closer->failure()) {
        onException(cms::CMSException(*failure));
        return false;
    }
    return true;
}

QString KVXCWMessageImpl::errorString() const
{
    const std::lock_guard<std::mutex> lock(m_errorMutex);
    return m_lastError;
}

void KVXCWMessageImpl::beginClosing()
{
    // Two closes of one connection at a time are more than the library promises to stand.
    if (!m_closer || m_closer->waitUntilClosed(kvx::LinkCloser::Deadline::min()))
        m_closer = std::make_unique<kvx::LinkCloser>(m_link);
}

void KVXCWMessageImpl::releaseLink(kvx::LinkCloser::Deadline deadline)
{
    beginClosing();
    m_link.reset();
    m_closer->waitUntilFinished(deadline);
    m_closer.reset();
}

void KVXCWMessageImpl::onMessage(const cms::Message *message)
{
    if (!message)
        return;
    try {
        const auto *text = dynamic_cast<const cms::TextMessage *>(message);
        if (!text) {
            refuse(*message);
            return;
        }
        const QString content = QString::fromStdString(kvx::fromModifiedUtf8(text->getText()));
        const QJsonObject object = QJsonDocument::fromJson(content.toUtf8()).object();
        logReceived(object);
        emit notify(object);
    } catch (const cms::CMSException &error) {
        onException(error);
    } catch (const std::exception &error) {
        onException(cms::CMSException(error.what()));
    }
}

void KVXCWMessageImpl::onException(const cms::CMSException &exception)
{
    const QString text = QString::fromStdString(exception.getMessage());
    {
        const std::lock_guard<std::mutex> lock(m_errorMutex);
        m_lastError = text;
    }
    const QJsonObject envelope { { QStringLiteral("notifymsg_type"),
                                     QStringLiteral("notifymsg_connection") },
        { QStringLiteral("notifymsg_content"), text } };
    KVXNetworkLog::logError(kvx::logText("ActiveMQ run error: message=%1", shortened(envelope)));
    if (QThread::currentThread() == thread())
        m_notifier.post(envelope); // a blocking receiver on this thread would wait for itself
    else
        emit notify(envelope);
}

void KVXCWMessageImpl::logReceived(const QJsonObject &message) const
{
    KVXNetworkLog::logInfo(
        kvx::logText("Recv message from ActiveMQ: message=%1", shortened(message)));
}

void KVXCWMessageImpl::refuse(const cms::Message &message) const
{
    const std::string name = kvx::typeName(typeid(message));
    const QString shown = QString::fromStdString(name);
    KVXNetworkLog::logError(kvx::logText(
        "Recv message from ActiveMQ, But is unsupported message type: name=%1", shown));
    KVX_ERROR("Recv message from ActiveMQ, But is unsupported message type: name=%1", shown);
    std::cerr << "Unsupported message type received: " + name + '\n';
}
