#include "ProjectContent.h"

#include <KVXCommon/KVXZipFile.h>
#include <KVXSQLite/IKVXSQLiteModel.h>
#include <KVXSQLite/IKVXSQLiteModelCommandFile.h>
#include <KVXSQLite/KVXProjectDatabase.h>
#include <QFile>
#include <QTemporaryDir>
#include <memory>
#include <sqlite3.h>

namespace kvx::test {

namespace {

/// A copy with what SQLite has not moved into the main file yet.
bool copyOf(const QString &file, const QString &target)
{
    const QString log = QStringLiteral("-wal");
    return QFile::copy(file, target)
        && (!QFile::exists(file + log) || QFile::copy(file + log, target + log))
        && QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner);
}

QString valueOf(sqlite3 *database, const char *sql)
{
    sqlite3_stmt *statement = nullptr;
    QString value;
    if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) != SQLITE_OK)
        value = QString::fromUtf8(sqlite3_errmsg(database));
    else if (sqlite3_step(statement) == SQLITE_ROW)
        value
            = QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, 0)));
    sqlite3_finalize(statement);
    return value;
}

/// Opens a file as one that came from the server, which undoes what is not published.
std::unique_ptr<KVXProjectDatabase> opened(
    const QString &file, const QString &guid, ProjectContent *content)
{
    auto project = KVXProjectDatabase::open(
        file, guid, KVXProjectDatabase::Origin::Downloaded, QString(), &content->fault);
    if (!project)
        return nullptr;
    content->guid = project->projectGuid();
    content->version = project->logVersion();
    content->published = project->contentDigest().toHex();
    return project;
}

/// GUID, check of the whole file, pending edits. `forget`: an answer that never came does not count
/// as a publication.
void readRaw(const QString &file, bool forget, ProjectContent *content)
{
    sqlite3 *database = nullptr;
    if (sqlite3_open_v2(
            QFile::encodeName(file).constData(), &database, SQLITE_OPEN_READWRITE, nullptr)
        == SQLITE_OK) {
        const QString check = valueOf(database, "PRAGMA integrity_check");
        if (check != QLatin1String("ok"))
            content->fault = QStringLiteral("it is damaged: %1").arg(check);
        content->guid = valueOf(database, "SELECT value FROM kvx_meta WHERE key = 'project'");
        content->pending = valueOf(database, "SELECT count(*) FROM kvx_pending").toInt();
        if (forget)
            valueOf(database, "DELETE FROM kvx_meta WHERE key LIKE 'publish%'");
        valueOf(database, "PRAGMA wal_checkpoint(TRUNCATE)");
    } else {
        content->fault = QString::fromUtf8(sqlite3_errmsg(database));
    }
    sqlite3_close(database);
}

ProjectContent contentOf(const QString &file, bool isCopy)
{
    const QTemporaryDir folder;
    const QString copy = folder.filePath(QStringLiteral("project"));
    ProjectContent content;
    if (!copyOf(file, copy)) {
        content.fault = QStringLiteral("it cannot be read");
        return content;
    }
    readRaw(copy, isCopy, &content);
    if (content.fault.isEmpty())
        opened(copy, content.guid, &content);
    return content;
}

} // namespace

ProjectContent ProjectContent::ofCopy(const QString &file)
{
    return contentOf(file, true);
}

ProjectContent ProjectContent::ofUpload(const QString &file)
{
    return contentOf(file, false);
}

ProjectReplay::ProjectReplay(const QString &base, const QMap<int, QString> &logs)
{
    const QTemporaryDir folder;
    const QString copy = folder.filePath(QStringLiteral("project"));
    ProjectContent content;
    if (!copyOf(base, copy)) {
        m_fault = QStringLiteral("the base cannot be read");
        return;
    }
    readRaw(copy, false, &content);
    const auto project = content.fault.isEmpty() ? opened(copy, content.guid, &content) : nullptr;
    if (!project) {
        m_fault = QStringLiteral("the base: %1").arg(content.fault);
        return;
    }
    m_digests.insert(content.version, content.published);
    const std::unique_ptr<IKVXSQLiteModelCommandFile> command(CreateSQLiteModelCommandFile());
    for (auto log = logs.upperBound(content.version); log != logs.end(); ++log) {
        const QString unpacked = folder.filePath(QString::number(log.key()));
        QMap<QString, QString> files;
        if (!KVXZipFile::extractFiles(log.value(), unpacked, files, QString()) || files.size() != 1
            || !command->loadFromFile(files.first()))
            m_fault = QStringLiteral("log %1 is damaged").arg(log.key());
        else if (project->model()->execute(command.get(), 0) == 0)
            m_fault = QStringLiteral("log %1: %2").arg(log.key()).arg(project->errorText());
        else if (project->logVersion() != log.key())
            m_fault = QStringLiteral("log %1 leads to version %2")
                          .arg(log.key())
                          .arg(project->logVersion());
        if (!m_fault.isEmpty())
            return;
        m_digests.insert(log.key(), project->contentDigest().toHex());
    }
}

} // namespace kvx::test
