#include "Fixture.h"

#include "KVXSQLite/Schema.h"

#include <QFile>

namespace kvx::test {

const QString testGuid = QStringLiteral("{8d7c0e6e-5c1f-4d65-9a6b-3f2b1c0d9e8f}");
const QString testSchema = QStringLiteral(
    "CREATE TABLE chapters(id INTEGER PRIMARY KEY, title TEXT NOT NULL);"
    "CREATE TABLE items(id INTEGER PRIMARY KEY, chapter INTEGER NOT NULL REFERENCES chapters(id)"
    " DEFERRABLE INITIALLY DEFERRED, text TEXT, quantity REAL, rate REAL, note BLOB);"
    "CREATE TABLE buildups(item INTEGER NOT NULL, part TEXT NOT NULL, amount REAL,"
    " PRIMARY KEY(item, part)) WITHOUT ROWID;"
    "CREATE INDEX itemsOfChapter ON items(chapter)");

QString ProjectFiles::file(const char *name) const
{
    return m_folder.filePath(QString::fromLatin1(name));
}

Database ProjectFiles::project(const char *name)
{
    Database database = KVXProjectDatabase::create(file(name), testGuid, testSchema, &error);
    EXPECT_TRUE(database) << error.toStdString();
    EXPECT_TRUE(sql(database,
        "INSERT INTO chapters VALUES (1,'Earthworks'),(2,'Concrete');"
        "INSERT INTO items VALUES (10,1,'Excavate',12.5,8,NULL),(11,1,'Backfill',4,6.25,x'00ff'),"
        "(20,2,'Foundation',30,110,NULL);"
        "INSERT INTO buildups VALUES (10,'labour',3),(10,'plant',5)"));
    EXPECT_TRUE(database->sealBase());
    return database;
}

Database ProjectFiles::open(const QString &path, KVXProjectDatabase::Origin origin)
{
    error.clear();
    return KVXProjectDatabase::open(path, testGuid, origin, testSchema, &error, &failure);
}

Database ProjectFiles::download(const Database &source, const char *name)
{
    EXPECT_TRUE(source->checkpoint()) << source->errorText().toStdString();
    return open(copyOf(source->path(), name), KVXProjectDatabase::Origin::Downloaded);
}

QString ProjectFiles::copyOf(const QString &path, const char *name) const
{
    QFile::remove(file(name));
    EXPECT_TRUE(QFile::copy(path, file(name)));
    return file(name);
}

bool ProjectFiles::sql(const Database &database, const std::string &statements)
{
    return database->edit([&](sqlite3 *connection) {
        return sqlite3_exec(connection, statements.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
    });
}

std::string ProjectFiles::value(const Database &database, const std::string &query)
{
    sqlite::Statement statement(database->connection(), query.c_str());
    return statement.step() == SQLITE_ROW ? statement.text(0) : "no row";
}

QString ProjectFiles::prepare(const Database &database)
{
    const QString log = file(("log" + std::to_string(++m_logs)).c_str());
    EXPECT_TRUE(database->prepareSave(log, QStringLiteral("ann@example.org")))
        << database->errorText().toStdString();
    return log;
}

QString ProjectFiles::publish(const Database &database)
{
    const QString log = prepare(database);
    EXPECT_TRUE(database->published(database->logVersion() + 1))
        << database->errorText().toStdString();
    return log;
}

int ProjectFiles::execute(const Database &database, const QString &commandFile)
{
    const std::unique_ptr<IKVXSQLiteModelCommandFile> log(CreateSQLiteModelCommandFile());
    return log->loadFromFile(commandFile) ? database->model()->execute(log.get(), 0) : 0;
}

void ProjectFiles::outside(const QString &path, const std::string &statements)
{
    sqlite3 *connection = nullptr;
    ASSERT_EQ(sqlite3_open(path.toUtf8().constData(), &connection), SQLITE_OK);
    char *text = nullptr;
    EXPECT_EQ(sqlite3_exec(connection, statements.c_str(), nullptr, nullptr, &text), SQLITE_OK)
        << text;
    sqlite3_free(text);
    sqlite3_close(connection);
}

QString ProjectFiles::forge(const Database &database, int version, const Bytes &payload)
{
    sqlite::Schema schema;
    EXPECT_TRUE(sqlite::Schema::fromSql(testSchema.toStdString(), &schema).ok());
    sqlite::CommandHeader header;
    header.version = version;
    header.projectGuid = database->projectGuid().toStdString();
    header.schema = schema.fingerprint();
    header.author = "mallory@example.org";
    const QString path = file(("forged" + std::to_string(++m_logs)).c_str());
    writeFile(path, sqlite::CommandFile::encode(header, payload));
    return path;
}

Bytes readFile(const QString &path)
{
    QFile source(path);
    EXPECT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray bytes = source.readAll();
    return Bytes(bytes.begin(), bytes.end());
}

void writeFile(const QString &path, const Bytes &bytes)
{
    QFile target(path);
    ASSERT_TRUE(target.open(QIODevice::WriteOnly | QIODevice::Truncate));
    target.write(reinterpret_cast<const char *>(bytes.data()), static_cast<qint64>(bytes.size()));
}

Bytes changesetOf(const std::string &schema, const std::string &statements, bool patchset)
{
    sqlite3 *connection = nullptr;
    sqlite3_open(":memory:", &connection);
    EXPECT_EQ(sqlite3_exec(connection, schema.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_session *session = nullptr;
    sqlite3session_create(connection, "main", &session);
    sqlite3session_attach(session, nullptr);
    EXPECT_EQ(sqlite3_exec(connection, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(connection);
    int size = 0;
    void *data = nullptr;
    if (patchset)
        sqlite3session_patchset(session, &size, &data);
    else
        sqlite3session_changeset(session, &size, &data);
    const auto *begin = static_cast<unsigned char *>(data);
    Bytes bytes(begin, begin + size);
    sqlite3_free(data);
    sqlite3session_delete(session);
    sqlite3_close(connection);
    return bytes;
}

} // namespace kvx::test
