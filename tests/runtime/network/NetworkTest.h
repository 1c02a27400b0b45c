#pragma once

#include "support/LoopbackServer.h"

#include <KVXNetwork/KVXNetwork.h>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <atomic>
#include <gtest/gtest.h>

namespace kvx::test {

using Request = LoopbackServer::Request;
using Connection = LoopbackServer::Connection;

/// The process's transport with a fresh session, and a server to talk to.
class NetworkTest : public testing::Test {
protected:
    NetworkTest();
    ~NetworkTest() override;

    QString url(const std::string &path = "/kvx/service") const;
    /// Posts {"service": service} and keeps the reply.
    bool post(const char *service = "getroles");
    /// What the server got as JSON in its last request.
    QJsonObject sentJson() const;
    QString path(const QString &name) const { return m_folder.filePath(name); }
    QString writeFile(const QString &name, const QByteArray &bytes) const;
    static QByteArray readFile(const QString &path);
    QStringList filesInFolder() const;
    QString error() const { return network->lastError(); }

    KVXNetwork *const network = KVXNetwork::getInstance();
    LoopbackServer server;
    QJsonObject reply;

private:
    QTemporaryDir m_folder;
};

/// What a transfer reported.
struct Progress {
    QVector<QPair<qint64, qint64>> reports;
    std::thread::id thread;
    static void add(void *receiver, qint64 done, qint64 total);
};

} // namespace kvx::test
