#pragma once

#include "ScriptedCms.h"
#include "messaging/KVXCWMessageImpl.h"
#include "support/FakeHost.h"

#include <cms/CMSException.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>

namespace kvx::test {

/// A messager on the scripted library.
class ScriptedFixture : public testing::Test {
protected:
    using Steps = std::vector<std::string>;

    ScriptedFixture()
    {
        library.reset();
        messager = std::make_unique<KVXCWMessageImpl>();
        messager->setBrokerURI(QStringLiteral("tcp://h:1"));
        messager->setTopic(QStringLiteral("t"));
        QObject::connect(messager.get(), &KVXCWMessage::notify, [this](const QJsonObject &message) {
            const std::lock_guard<std::mutex> lock(mutex);
            notifications.append(message);
        });
    }

    QList<QJsonObject> received()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return notifications;
    }

    /// The connection notification of this text has come, and nothing besides.
    bool announced(const char *text)
    {
        const QJsonObject expected { { QStringLiteral("notifymsg_type"),
                                         QStringLiteral("notifymsg_connection") },
            { QStringLiteral("notifymsg_content"), QLatin1String(text) } };
        return waitUntil([&] { return received() == QList<QJsonObject> { expected }; });
    }

    static void throwBrokerError() { throw cms::CMSException("broken %1"); }

    static ScriptedCms &library;
    FakeHost host;
    std::mutex mutex;
    QList<QJsonObject> notifications; ///< guarded by mutex
    std::unique_ptr<KVXCWMessageImpl> messager;
};

inline ScriptedCms &ScriptedFixture::library = ScriptedCms::instance();

} // namespace kvx::test
