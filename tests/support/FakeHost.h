#pragma once

#include "support/FakeNetwork.h"
#include "support/PlainManagers.h"

#include <KVXCollaboration/KVXCWMessage.h>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <memory>
#include <mutex>

namespace kvx::test {

/// A messager without a broker.
class FakeMessage : public KVXCWMessage {
public:
    bool startResult = true;
    QString error;
    int starts = 0;
    int stops = 0;

    bool start() override
    {
        ++starts;
        return startResult;
    }
    bool stop() override
    {
        ++stops;
        return true;
    }
    QString errorString() const override { return error; }
};

struct LogRecord {
    int level; ///< 20000 INFO, 30000 WARN, 40000 ERROR
    QString text;
    QString source; ///< file name as logged
    QString function;
    int line; ///< of the source file
};

/// A host for one manager under test: endpoint set ("127.0.0.1", "8090"), user "Anna Weiss"
/// <anna@example.com> logged in, FakeLogin and FakeMessage registered, FakeNetwork installed, log
/// captured. The end restores an empty registry and endpoint.
class FakeHost {
public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost &) = delete;
    FakeHost &operator=(const FakeHost &) = delete;

    FakeNetwork network;
    /// Owned by the registry.
    FakeLogin *login = nullptr;
    FakeMessage *messager = nullptr;

    void unconfigure();
    /// Replaces the current user; the role JSON ({} for none) as the server sends it.
    void setUser(const QString &name, const QString &email, const QJsonObject &role = {});
    void removeUser();

    /// Emits notify from a thread of its own, as a broker does, and runs the event loop here until
    /// the emission has returned (at most ten seconds; false when it did not).
    bool notifyFromBroker(const QJsonObject &message);
    bool notifyFromBroker(const QList<QJsonObject> &messages);

    /// Log records since the last call.
    QList<LogRecord> takeLog();
    /// True when a record of the level and exactly the text was written since the last takeLog().
    bool logged(int level, const QString &text) const;

    struct LogStore;

private:
    std::shared_ptr<LogStore> m_log;
};

/// Fails the test when requests were made that were not taken.
void expectNoRequest(FakeHost &host);

/// Fails the test when the object is not the one of that JSON text.
void expectJson(const QJsonObject &actual, const char *expected);

/// Runs the event loop until the condition holds, at most so many milliseconds.
bool waitUntil(const std::function<bool()> &condition, int limitMs = 5000);

/// JSON text to object; a test error when it is none.
QJsonObject json(const char *text);

} // namespace kvx::test
