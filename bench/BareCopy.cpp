#include "BareCopy.h"

#include "Stand.h"

#include <sqlite3.h>

namespace kvx::bench {

namespace {

int giveWay(void *, int, sqlite3_changeset_iter *)
{
    return SQLITE_CHANGESET_ABORT;
}

} // namespace

BareCopy::BareCopy(const QString &path)
{
    require(sqlite3_open(path.toUtf8().constData(), &m_connection) == SQLITE_OK, path);
    run("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA wal_autocheckpoint=0");
}

BareCopy::~BareCopy()
{
    sqlite3_close(m_connection);
}

void BareCopy::apply(const QList<QByteArray> &changesets)
{
    run("BEGIN IMMEDIATE");
    for (const QByteArray &changeset : changesets)
        require(sqlite3changeset_apply(m_connection, changeset.size(),
                    const_cast<char *>(changeset.constData()), nullptr, giveWay, nullptr)
                == SQLITE_OK,
            QStringLiteral("the changeset does not fit"));
    run("COMMIT");
}

void BareCopy::run(const char *sql)
{
    require(sqlite3_exec(m_connection, sql, nullptr, nullptr, nullptr) == SQLITE_OK,
        QLatin1String(sql));
}

} // namespace kvx::bench
