#pragma once

#include "support/FakeNetwork.h"

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>

namespace kvx::test {

/// The services of one project over the scripted transport, with a file store and a log lock, as a
/// well-behaved server offers them. A test may lay single answers over it.
class ProjectServer {
public:
    ProjectServer(FakeNetwork &network, const QString &guid);
    ProjectServer(const ProjectServer &) = delete;
    ProjectServer &operator=(const ProjectServer &) = delete;

    int version = -1;
    QMap<QString, QByteArray> files; ///< published, by server name
    QMap<QString, QByteArray> staged; ///< uploaded under the lock
    bool locked = false;
    int locksWon = 0;
    int locksReleased = 0;
    int merges = 0;
    int nextNumber = 1001; ///< start of the next block of a thousand numbers

    /// As at the start.
    void reset();

    QString logName(int logVersion) const;
    QString projectFileName() const;
    /// Packs the file as the log of that version and publishes it.
    void publishLog(int logVersion, const QString &commandFile);
    void publishArchive(int logVersion, const QByteArray &archive);

private:
    bool upload(const QJsonObject &request, QJsonObject &reply);
    bool download(const QJsonObject &request, QJsonObject &reply);
    bool lock(const QJsonObject &request, QJsonObject &reply);
    bool merge(const QJsonObject &request, QJsonObject &reply);

    QString m_guid;
};

QByteArray readFile(const QString &path);
bool writeFile(const QString &path, const QByteArray &content);
QJsonObject status(double code);

} // namespace kvx::test
