#include "Report.h"
#include "Sink.h"
#include "Stand.h"
#include "Workloads.h"

#include "KVXSQLite/Statement.h"
#include "content/Schema.h"

#include <KVXCollaboration/KVXCWIDManager.h>
#include <sqlite3.h>

namespace kvx::bench {

namespace {

using sqlite::Statement;

/// The rows of a check-out, written as plainly as they can be: one transaction, one sync.
class BareItems {
public:
    explicit BareItems(const QString &path)
    {
        const bool opened = sqlite3_open(path.toUtf8().constData(), &m_connection) == SQLITE_OK
            && run("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                   "CREATE TABLE item (project INTEGER, module INTEGER, item INTEGER, user INTEGER,"
                   " state INTEGER, at INTEGER, seq INTEGER, PRIMARY KEY (project, module, item))");
        require(opened, QStringLiteral("the bare table cannot be made"));
    }
    ~BareItems() { sqlite3_close(m_connection); }
    BareItems(const BareItems &) = delete;
    BareItems &operator=(const BareItems &) = delete;

    double checkOut(const QList<int> &ids)
    {
        return milliseconds([&] {
            run("BEGIN IMMEDIATE");
            Statement insert(m_connection,
                "INSERT INTO item VALUES (1, 1, ?, 1, 1, ?, 1)"
                " ON CONFLICT DO UPDATE SET state = 1, at = excluded.at");
            for (const int id : ids)
                require(insert.bind(id).bind(++m_moment).run(), QStringLiteral("insert failed"));
            require(run("COMMIT"), QStringLiteral("commit failed"));
        });
    }

private:
    bool run(const char *sql)
    {
        return sqlite3_exec(m_connection, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }

    sqlite3 *m_connection = nullptr;
    int m_moment = 0;
};

/// The numbers as a request has them.
QByteArray requestOf(const QList<int> &ids)
{
    QByteArray numbers;
    for (const int id : ids)
        numbers += QByteArray::number(id) + ';';
    return "{\"IDs\":\"" + numbers + "\"}";
}

} // namespace

void measureCheckOut(Stand &stand, Report &report)
{
    QString base;
    const QString name = QStringLiteral("check-out");
    stand.share(name, mediumTender, &base);
    host::OpenProject::Failure failure;
    host::OpenProject *project = stand.client().use(name, &failure);
    require(project, failure.text);

    const Sink sink(stand.path(QString()));
    Wire wire(sink.address());
    for (const int count : { 10'000, 1 }) {
        QList<int> ids;
        for (int id = 1; id <= count; ++id)
            ids.append(id);
        BareItems bare(stand.path(QStringLiteral("items-%1").arg(count)));
        std::vector<double> floor;
        std::vector<double> ours;
        for (int i = 0; i < stand.repeats(); ++i) {
            floor.push_back(bare.checkOut(ids) + milliseconds([&] { wire.post(requestOf(ids)); }));
            ours.push_back(milliseconds([&] {
                require(project->ids()->checkOut(content::ItemModule, ids),
                    QStringLiteral("the items were not checked out"));
            }));
            require(project->ids()->checkInAll(), QStringLiteral("the items were not checked in"));
        }
        const QString line = QStringLiteral("check-out, items: %1").arg(count);
        if (count > 1)
            report.addRatio(line, median(floor), median(ours), 3);
        else
            report.add({ line, median(floor), median(ours), QString() });
    }
    const QString guid = project->guid();
    stand.client().close(guid);
}

} // namespace kvx::bench
