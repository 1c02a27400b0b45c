#include "projectdata/ProjectServer.h"

#include <KVXCommon/KVXZipFile.h>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>

namespace kvx::test {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QJsonObject status(double code)
{
    return { { QStringLiteral("statuscode"), code } };
}

ProjectServer::ProjectServer(FakeNetwork &network, const QString &guid)
    : m_guid(guid)
{
    network.handle(
        QStringLiteral("getlogversion"), [this](const QJsonObject &, QJsonObject &reply) {
            reply = status(1);
            reply.insert(QStringLiteral("LogVersion"), version);
            reply.insert(QStringLiteral("Chain"), QStringLiteral("a key that clients do not know"));
            return true;
        });
    network.handle(
        QStringLiteral("allocateidrange"), [this](const QJsonObject &, QJsonObject &reply) {
            reply = status(1);
            reply.insert(QStringLiteral("MinID"), nextNumber);
            reply.insert(QStringLiteral("MaxID"), nextNumber + 999);
            nextNumber += 1000;
            return true;
        });
    using namespace std::placeholders;
    network.handle(QStringLiteral("upload"), std::bind(&ProjectServer::upload, this, _1, _2));
    network.handle(QStringLiteral("download"), std::bind(&ProjectServer::download, this, _1, _2));
    network.handle(QStringLiteral("loglock"), std::bind(&ProjectServer::lock, this, _1, _2));
    network.handle(
        QStringLiteral("sendservertomerge"), std::bind(&ProjectServer::merge, this, _1, _2));
}

void ProjectServer::reset()
{
    version = -1;
    files.clear();
    staged.clear();
    locked = false;
    locksWon = 0;
    locksReleased = 0;
    merges = 0;
    nextNumber = 1001;
}

QString ProjectServer::logName(int logVersion) const
{
    return m_guid + QStringLiteral("_log") + QString::number(logVersion);
}

QString ProjectServer::projectFileName() const
{
    return m_guid + QStringLiteral(".KVX");
}

void ProjectServer::publishLog(int logVersion, const QString &commandFile)
{
    const QTemporaryDir folder;
    const QString archive = folder.filePath(QStringLiteral("archive"));
    ASSERT_TRUE(KVXZipFile::compressFiles(archive, { { logName(logVersion), commandFile } }, {}));
    publishArchive(logVersion, readFile(archive));
}

void ProjectServer::publishArchive(int logVersion, const QByteArray &archive)
{
    files.insert(logName(logVersion), archive);
    version = std::max(version, logVersion);
}

bool ProjectServer::upload(const QJsonObject &request, QJsonObject &reply)
{
    const QString local = request.value(QLatin1String("LocalFileName")).toString();
    if (!locked || !QFile::exists(local)) {
        reply = status(locked ? 603 : 600);
        return true;
    }
    staged.insert(request.value(QLatin1String("FileName")).toString(), readFile(local));
    reply = status(1);
    return true;
}

bool ProjectServer::download(const QJsonObject &request, QJsonObject &reply)
{
    const QString name = request.value(QLatin1String("FileName")).toString();
    const QString local = request.value(QLatin1String("LocalFileName")).toString();
    reply = status(files.contains(name) && writeFile(local, files.value(name)) ? 1 : 606);
    return true;
}

bool ProjectServer::lock(const QJsonObject &request, QJsonObject &reply)
{
    reply = status(1);
    if (request.value(QLatin1String("ReleaseLock")).toBool()) {
        locked = false;
        staged.clear();
        ++locksReleased;
        reply.insert(QStringLiteral("Lock"), 0);
        return true;
    }
    const bool behind = request.value(QLatin1String("LogVersion")).toInt() < version;
    if (!behind) {
        locked = true;
        ++locksWon;
    }
    reply.insert(QStringLiteral("Lock"), behind ? 0 : 1);
    return true;
}

bool ProjectServer::merge(const QJsonObject &request, QJsonObject &reply)
{
    const QString log = request.value(QLatin1String("LogFilename")).toString();
    if (!locked || request.value(QLatin1String("LogVersion")).toInt() != version
        || log != logName(version + 1) || !staged.contains(log)
        || !staged.contains(projectFileName())) {
        reply = status(603);
        return true;
    }
    for (auto it = staged.cbegin(); it != staged.cend(); ++it)
        files.insert(it.key(), it.value());
    staged.clear();
    ++version;
    ++merges;
    reply = status(1);
    return true;
}

} // namespace kvx::test
