#include "KVXSQLite/ProjectFile.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>
#include <cstring>
#include <sqlite3.h>

namespace kvx::sqlite {

namespace {

constexpr int checkLimit = 120'000; // milliseconds
const char *const sideFiles[] = { "-wal", "-shm", "-journal" };

Status notAProject(const QString &path, const char *reason)
{
    return { Failure::NotAProject, path.toStdString() + " is no project file: " + reason };
}

std::uint64_t bigEndian(const unsigned char *at, int bytes)
{
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = (value << 8) | at[i];
    return value;
}

Status quickCheck(Connection &connection, const QString &path)
{
    const Deadline deadline(connection.handle(), checkLimit);
    Statement check(connection.handle(), "PRAGMA quick_check(1)");
    const int code = check.step();
    if (code == SQLITE_ROW && check.text(0) == "ok")
        return {};
    if (code == SQLITE_ROW)
        return { Failure::Damaged, path.toStdString() + " is damaged: " + check.text(0) };
    Status status = connection.error(path.toStdString());
    if (status.failure == Failure::Internal)
        status.failure = Failure::Damaged;
    return status;
}

Status checkTable(Connection &connection, const char *name, const char *sql, bool exact)
{
    Statement &select = connection.kept("SELECT sql FROM sqlite_schema"
                                        " WHERE name = ? AND type = 'table' AND rootpage > 0");
    const bool found = select.bind(name).step() == SQLITE_ROW && (!exact || select.text(0) == sql);
    select.reset();
    return found ? Status()
                 : Status { Failure::NotAProject, "the database lacks the project's bookkeeping" };
}

Status checkBookkeeping(Connection &connection, const QString &projectGuid)
{
    // The format first: a later release may keep its books otherwise.
    Status status = checkTable(connection, "kvx_meta", Bookkeeping::metaTable, false);
    std::int64_t format = 0;
    Bookkeeping book(connection);
    if (status.ok())
        status = book.number("format", &format);
    if (!status.ok())
        return status;
    if (format > Bookkeeping::formatVersion)
        return { Failure::NewerFormat,
            "the project file has format " + std::to_string(format)
                + " and was written by a newer release; this one reads format "
                + std::to_string(Bookkeeping::formatVersion) };
    status = checkTable(connection, "kvx_meta", Bookkeeping::metaTable, true);
    if (status.ok())
        status = checkTable(connection, "kvx_pending", Bookkeeping::pendingTable, true);
    std::string guid;
    if (status.ok())
        status = book.text("project", &guid);
    if (status.ok() && !projectGuid.isEmpty()
        && projectGuid.compare(QString::fromStdString(guid), Qt::CaseInsensitive) != 0)
        status = { Failure::OtherProject,
            "the file belongs to project " + guid + ", not to " + projectGuid.toStdString() };
    int version = -1;
    if (status.ok())
        status = book.version(&version);
    bool sealed = false;
    return status.ok() ? book.sealed(&sealed) : status;
}

Status checkSchema(Connection &connection, const QString &schemaSql, Schema *schema)
{
    Status status = Schema::read(connection, schema);
    Digest stored {};
    if (status.ok())
        status = Bookkeeping(connection).fingerprint(&stored);
    if (status.ok() && stored != schema->fingerprint())
        status = { Failure::BadSchema, "the project's tables were changed by another program" };
    if (!status.ok() || schemaSql.isEmpty())
        return status;
    Schema expected;
    status = Schema::fromSql(schemaSql.toStdString(), &expected);
    if (status.ok() && expected.fingerprint() != schema->fingerprint())
        status = { Failure::BadSchema,
            "the project has other tables than this application works with" };
    return status;
}

Status walMode(Connection &connection)
{
    Statement mode(connection.handle(), "PRAGMA journal_mode=WAL");
    if (mode.step() == SQLITE_ROW && mode.text(0) == "wal")
        return {};
    Status status = connection.error("switching to a write-ahead log");
    if (status.failure == Failure::Internal)
        status = { Failure::Io, "the folder of the project file does not allow a write-ahead log" };
    return status;
}

Status layOut(Connection &connection, const QString &path, const QString &projectGuid,
    const QString &schemaSql)
{
    Status status = connection.open(path.toStdString(), Connection::Role::Host);
    if (status.ok())
        status = walMode(connection);
    if (status.ok())
        status = connection.begin();
    if (status.ok())
        status = connection.exec(schemaSql.toUtf8().constData(), "creating the content tables");
    if (status.ok() && !connection.inTransaction())
        status = { Failure::BadSchema,
            "creating the content tables: the statements end the transaction" };
    Schema schema;
    if (status.ok())
        status = Schema::read(connection, &schema);
    if (status.ok() && schema.tables().empty())
        status = { Failure::BadSchema, "creating the content tables: there is none" };
    if (status.ok())
        status = Bookkeeping(connection).create(projectGuid.toStdString(), schema.fingerprint());
    return status.ok() ? connection.commit() : status;
}

} // namespace

Status ProjectFile::create(
    const QString &path, const QString &projectGuid, const QString &schemaSql)
{
    const QUuid uuid(projectGuid);
    if (uuid.isNull() || uuid.toString().compare(projectGuid, Qt::CaseInsensitive) != 0)
        return { Failure::Refused, "\"" + projectGuid.toStdString() + "\" is no project GUID" };
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return { Failure::Io,
            "creating " + path.toStdString() + ": " + file.errorString().toStdString() };
    file.close();
    Connection connection;
    const Status status = layOut(connection, path, projectGuid, schemaSql);
    if (!status.ok()) {
        connection.rollback();
        static_cast<void>(connection.close());
        file.remove();
        for (const char *side : sideFiles)
            QFile::remove(path + QLatin1String(side));
    }
    return status;
}

Status ProjectFile::checkOutside(const QString &path, bool downloaded)
{
    const QFileInfo info(path);
    if (!info.exists())
        return notAProject(path, "it does not exist");
    if (info.isSymLink() || !info.isFile())
        return notAProject(path, "it is not a regular file");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return { Failure::Io,
            "opening " + path.toStdString() + ": " + file.errorString().toStdString() };
    if (file.size() == 0)
        return notAProject(path, "it is empty");
    const QByteArray header = file.read(100);
    if (header.size() < 100 || std::memcmp(header.constData(), "SQLite format 3", 16) != 0)
        return notAProject(path, "it is not a database");
    if (!downloaded)
        return {};
    const auto *bytes = reinterpret_cast<const unsigned char *>(header.constData());
    const std::uint64_t stored = bigEndian(bytes + 16, 2);
    const std::uint64_t pageSize = stored == 1 ? 65536 : stored;
    if (pageSize < 512
        || static_cast<std::uint64_t>(file.size()) != pageSize * bigEndian(bytes + 28, 4))
        return { Failure::Damaged,
            path.toStdString() + " is damaged: its size does not match its header" };
    // A write-ahead log of the file that stood here before must not be played into this one.
    for (const char *side : sideFiles)
        if (QFile::exists(path + QLatin1String(side)) && !QFile::remove(path + QLatin1String(side)))
            return { Failure::Io,
                "a remainder of the former project file cannot be removed: " + path.toStdString()
                    + side };
    return {};
}

Status ProjectFile::open(Connection *connection, const QString &path, const QString &projectGuid,
    const QString &schemaSql, Schema *schema)
{
    Status status = connection->open(path.toStdString(), Connection::Role::Host);
    if (status.ok())
        status = quickCheck(*connection, path);
    if (status.ok())
        status = checkBookkeeping(*connection, projectGuid);
    if (status.ok())
        status = checkSchema(*connection, schemaSql, schema);
    return status.ok() ? walMode(*connection) : status;
}

} // namespace kvx::sqlite
