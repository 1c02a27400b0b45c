#pragma once

#include "projectdata/ProjectFixture.h"

#include <QDir>
#include <QFile>

namespace kvx::test {

/// Saves of one open project; the archives they leave are removed at the end.
class Save : public ProjectFixture {
protected:
    KVXCWProjectData::ErrorCode save() { return project->saveProject(&info); }
    void answerLock(double lock)
    {
        QJsonObject reply = status(1);
        reply.insert(QStringLiteral("Lock"), lock);
        host.network.answer(QStringLiteral("loglock"), reply);
    }
    void answerLockOnce(const QJsonValue &lock)
    {
        QJsonObject reply = status(1);
        reply.insert(QStringLiteral("Lock"), lock);
        host.network.answerOnce(QStringLiteral("loglock"), reply);
    }
    QString archivePath(int version) const
    {
        return QDir::tempPath() + QLatin1Char('/') + server.logName(version);
    }
    void TearDown() override
    {
        for (int version = 0; version < 12; ++version)
            QFile::remove(archivePath(version));
    }
};

} // namespace kvx::test
