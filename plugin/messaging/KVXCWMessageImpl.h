#pragma once

#include "messaging/CmsLibrary.h"
#include "messaging/LinkCloser.h"
#include "messaging/Notifier.h"

#include <KVXCollaboration/KVXCWMessage.h>
#include <QString>
#include <cms/ExceptionListener.h>
#include <cms/MessageListener.h>
#include <memory>
#include <mutex>

namespace kvx {
struct BrokerLink;
}

/// The process's connection to the message broker. Every text message becomes a notification,
/// emitted on the library's dispatch thread: a blocking queued receiver holds back the next one.
/// Does not reconnect; a lost connection is announced, and the host logs in again.
///
/// start, stop and destruction: the messager's own thread, also from inside a receiver. None of
/// them waits longer than a second for notifications under way: what is posted to the module's
/// blocking receivers is dropped then, and a close that takes longer goes on by itself.
class KVXCWMessageImpl : public KVXCWMessage,
                         public cms::MessageListener,
                         public cms::ExceptionListener {
public:
    KVXCWMessageImpl();
    ~KVXCWMessageImpl() override;

    /// The connection of an earlier start is closed once a new one stands; an attempt that does
    /// not get that far leaves it alone.
    bool start() override;
    /// False also when no thread can be started for the close; the connection goes on then.
    bool stop() override;
    /// Text of the last broker failure, kept over later successes. Any thread.
    QString errorString() const override;

    /// Called by the library on its threads. The messager is not touched after the emission.
    void onMessage(const cms::Message *message) override;
    /// On the messager's own thread the notification is left to a thread of its own.
    void onException(const cms::CMSException &exception) override;

private:
    void beginClosing();
    void releaseLink(kvx::LinkCloser::Deadline deadline);
    void logReceived(const QJsonObject &message) const;
    void refuse(const cms::Message &message) const;

    kvx::CmsLibrary m_library;
    mutable std::mutex m_errorMutex; ///< guards m_lastError
    QString m_lastError;
    std::shared_ptr<kvx::BrokerLink> m_link; ///< null before the first start
    std::unique_ptr<kvx::LinkCloser> m_closer; ///< the last close of m_link
    kvx::Notifier m_notifier;
};
