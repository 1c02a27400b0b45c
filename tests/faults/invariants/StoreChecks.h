#pragma once

#include "History.h"
#include "ProjectContent.h"
#include "RunCheck.h"

#include <memory>
#include <optional>

namespace kvx::server {
class Db;
}

namespace kvx::test {

/// The server's store, against the history and the clients' copies.
class StoreChecks {
public:
    StoreChecks(const RunTraces &traces, const QVector<Event> &events, const Report &report);
    ~StoreChecks();
    void run();

private:
    struct Log {
        QString sha256; ///< of the archive
        QString file; ///< of the project file, empty once it is forgotten
        QString user;
        qint64 session = 0;
        qint64 generation = 0; ///< of the save lock
    };
    struct Project {
        QString guid;
        int version = -1;
        QString file; ///< of the project file
        QMap<int, Log> logs;
        QMap<int, QByteArray> digests; ///< what base and logs make, by version
        qint64 barrier = -1; ///< the last version that a restore skipped
    };

    void judgeStore();
    void readProjects();
    void checkBlobNames();
    void checkSaves();
    void checkArchives();
    void checkGenerations(const Project &project);
    void checkRanges();
    void checkFiles(Project &project);
    void checkCopies();
    void checkCopy(const QString &file);
    Project *find(const QString &guid);
    QString pathOf(const QString &sha256) const;
    void checkDigest(const Event &event, const Project &project);

    const RunTraces &m_traces;
    const QVector<Event> &m_events;
    const Report &m_report;
    std::unique_ptr<kvx::server::Db> m_db;
    QVector<Project> m_projects;
};

} // namespace kvx::test
