#include "KVXSQLite/ConflictsFile.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <cstring>
#include <sqlite3.h>
#include <unistd.h>

namespace kvx::sqlite {

namespace {

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

QJsonValue integerValue(qint64 value)
{
    // A JSON number keeps 53 bits.
    constexpr qint64 exact = qint64(1) << 53;
    if (value > exact || value < -exact)
        return QString::number(value);
    return static_cast<double>(value);
}

QJsonValue blobValue(const void *data, std::size_t size)
{
    const QByteArray bytes(static_cast<const char *>(data), static_cast<int>(size));
    return QJsonObject { { QStringLiteral("base64"), QString::fromLatin1(bytes.toBase64()) } };
}

QJsonValue jsonOf(const ChangedValue &value)
{
    switch (value.type) {
    case ChangedValue::Integer:
        return integerValue(static_cast<qint64>(value.bits));
    case ChangedValue::Real: {
        double real = 0;
        std::memcpy(&real, &value.bits, sizeof real);
        return real;
    }
    case ChangedValue::Text:
        return fromUtf8({ reinterpret_cast<const char *>(value.data), value.size });
    case ChangedValue::Blob:
        return blobValue(value.data, value.size);
    default:
        return QJsonValue::Null;
    }
}

QJsonValue jsonOf(sqlite3_value *value)
{
    switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
        return integerValue(sqlite3_value_int64(value));
    case SQLITE_FLOAT:
        return sqlite3_value_double(value);
    case SQLITE_TEXT:
        return QString::fromUtf8(
            reinterpret_cast<const char *>(sqlite3_value_text(value)), sqlite3_value_bytes(value));
    case SQLITE_BLOB:
        return blobValue(
            sqlite3_value_blob(value), static_cast<std::size_t>(sqlite3_value_bytes(value)));
    default:
        return QJsonValue::Null;
    }
}

QJsonValue rowOf(const Table &table, const std::vector<ChangedValue> &row, bool keyOnly)
{
    QJsonObject object;
    for (std::size_t i = 0; i < row.size() && i < table.columns.size(); ++i)
        if (row[i].type != ChangedValue::Absent && (!keyOnly || table.key[i] != 0))
            object.insert(fromUtf8(table.columns[i]), jsonOf(row[i]));
    return row.empty() ? QJsonValue(QJsonValue::Null) : QJsonValue(object);
}

} // namespace

QJsonValue ConflictsFile::theirRow(const Table &table, int conflict, sqlite3_changeset_iter *change)
{
    if (conflict != SQLITE_CHANGESET_DATA && conflict != SQLITE_CHANGESET_CONFLICT)
        return QJsonValue::Null;
    QJsonObject object;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        sqlite3_value *value = nullptr;
        if (sqlite3changeset_conflict(change, static_cast<int>(i), &value) == SQLITE_OK && value)
            object.insert(fromUtf8(table.columns[i]), jsonOf(value));
    }
    return object;
}

void ConflictsFile::add(const Table &table, const ChangesetReader &mine, const QJsonValue &theirs,
    const QString &reason, bool keptMine)
{
    const char *edit = mine.operation() == ChangesetReader::Operation::Insert ? "insert"
        : mine.operation() == ChangesetReader::Operation::Delete              ? "delete"
                                                                              : "update";
    const bool insert = mine.oldRow().empty();
    m_conflicts.append(QJsonObject {
        { QStringLiteral("table"), fromUtf8(table.name) },
        { QStringLiteral("key"), rowOf(table, insert ? mine.newRow() : mine.oldRow(), true) },
        { QStringLiteral("edit"), QString::fromLatin1(edit) },
        { QStringLiteral("reason"), reason },
        { QStringLiteral("before"), rowOf(table, mine.oldRow(), false) },
        { QStringLiteral("mine"), rowOf(table, mine.newRow(), false) },
        { QStringLiteral("theirs"), theirs },
        { QStringLiteral("kept"), keptMine ? QStringLiteral("mine") : QStringLiteral("theirs") },
    });
}

Status ConflictsFile::write(
    const QString &projectFile, int logVersion, const QString &author, QString *path) const
{
    const QJsonObject document {
        { QStringLiteral("logVersion"), logVersion },
        { QStringLiteral("author"), author },
        { QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate) },
        { QStringLiteral("conflicts"), m_conflicts },
    };
    const QByteArray bytes = QJsonDocument(document).toJson();
    // Never over an earlier one: its edits stand nowhere else.
    QFile file;
    for (int n = 1; n < 10'000 && !file.isOpen(); ++n) {
        file.setFileName(
            projectFile + QStringLiteral(".conflicts-%1-%2.json").arg(logVersion).arg(n));
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) && !file.exists())
            break;
    }
    if (file.isOpen() && file.write(bytes) == bytes.size() && file.flush()
        && ::fsync(file.handle()) == 0) {
        *path = file.fileName();
        return {};
    }
    const Status failed { Failure::Io,
        "writing the conflicts file: " + file.errorString().toStdString() };
    if (file.isOpen())
        file.remove();
    return failed;
}

} // namespace kvx::sqlite
