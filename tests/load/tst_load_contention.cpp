#include "Crowd.h"

#include "support/Watchdog.h"

#include <QJsonArray>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <sqlite3.h>

// Many clients save one project as fast as they can, all for the same lock: every save is there
// once, as the version that its client was told, and nobody's edit is missing.

namespace kvx::test {

namespace {

struct Published {
    int version = -1;
    QString email;
    qint64 at = 0; ///< ms
};

/// The project's logs as the server's database has them.
std::vector<Published> publishedLogs(const QString &guid)
{
    const QByteArray file = (site().dataFolder() + QStringLiteral("/db/kvx.sqlite")).toUtf8();
    sqlite3 *db = nullptr;
    EXPECT_EQ(sqlite3_open_v2(file.constData(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    sqlite3_busy_timeout(db, 10000);
    sqlite3_stmt *query = nullptr;
    sqlite3_prepare_v2(db,
        "SELECT l.version, u.email, l.at FROM project_log l JOIN project p ON p.id = l.project_id "
        "JOIN users u ON u.id = l.user_id WHERE p.guid = ? ORDER BY l.version",
        -1, &query, nullptr);
    const QByteArray key = guid.toUtf8();
    sqlite3_bind_text(query, 1, key.constData(), -1, SQLITE_STATIC);
    std::vector<Published> logs;
    while (sqlite3_step(query) == SQLITE_ROW) {
        logs.push_back({ sqlite3_column_int(query, 0),
            QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(query, 1))),
            sqlite3_column_int64(query, 2) });
    }
    sqlite3_finalize(query);
    sqlite3_close(db);
    return logs;
}

} // namespace

TEST(Contention, EverySaveOfManyIsPublishedOnceInOneUnbrokenRow)
{
    const bool everything = std::getenv("KVX_TEST_LONG") != nullptr;
    const int clients = everything ? 32 : 8;
    const int saves = everything ? 100 : 10;
    Watchdog::allow(everything ? 2700 : 240);
    Crowd crowd(clients);
    std::vector<int> all;
    for (int i = 0; i < clients; ++i)
        all.push_back(i);
    const QString guid = crowd.shareProject(clients, all);
    const int before = publishedLogs(guid).empty() ? -1 : publishedLogs(guid).back().version;

    std::mutex mutex;
    std::map<int, QString> told; // by version
    std::vector<double> waits;
    crowd.together([&](int index, host::ShellProcess &shell) {
        ASSERT_EQ(exitOf(shell.run(QStringLiteral("open ") + guid, 120000)), 0);
        for (int round = 1; round <= saves; ++round) {
            const QJsonObject edited = shell.run(QStringLiteral("edit %1 01.%2 rate=%3")
                                                     .arg(guid)
                                                     .arg(index + 1)
                                                     .arg(1000 * (index + 1) + round),
                120000);
            ASSERT_EQ(exitOf(edited), 0) << errorOf(edited).toStdString();
            const QJsonObject saved = shell.run(QStringLiteral("save ") + guid, 600000);
            ASSERT_EQ(exitOf(saved), 0)
                << "client " << index << ", save " << round << ": " << errorOf(saved).toStdString();
            shell.takeEvents();
            const std::lock_guard<std::mutex> lock(mutex);
            const int version = saved.value(QLatin1String("version")).toInt(-99);
            EXPECT_TRUE(told.emplace(version, crowd.email(index)).second)
                << "version " << version << " was told to two clients";
            waits.push_back(saved.value(QLatin1String("milliseconds")).toDouble());
        }
    });

    const std::vector<Published> logs = publishedLogs(guid);
    std::vector<double> apart;
    std::size_t found = 0;
    int expected = 0;
    for (const Published &log : logs) {
        EXPECT_EQ(log.version, expected++);
        if (log.version <= before)
            continue;
        ++found;
        EXPECT_EQ(told[log.version].toStdString(), log.email.toStdString()) << log.version;
        if (found > 1)
            apart.push_back(static_cast<double>(log.at - logs[std::size_t(expected) - 2].at));
    }
    EXPECT_EQ(found, std::size_t(clients * saves));
    EXPECT_EQ(told.size(), found);
    std::printf(
        "%zu saves of %d clients; from one publication to the next %.0f ms (half), %.0f ms "
        "(99 of 100); a save takes %.0f ms (half), %.0f ms (99 of 100), its wait included\n",
        found, clients, quantile(apart, 0.5), quantile(apart, 0.99), quantile(waits, 0.5),
        quantile(waits, 0.99));

    QStringList digests;
    crowd.together([&](int index, host::ShellProcess &shell) {
        EXPECT_EQ(exitOf(shell.run(QStringLiteral("open ") + guid, 120000)), 0);
        EXPECT_EQ(exitOf(shell.run(QStringLiteral("sync ") + guid, 120000)), 0);
        const QJsonObject status = shell.run(QStringLiteral("status ") + guid);
        EXPECT_EQ(status.value(QLatin1String("version")).toInt(-99), logs.back().version);
        EXPECT_EQ(status.value(QLatin1String("pending")).toInt(-1), 0);
        const QJsonObject shown = shell.run(QStringLiteral("show %1 01").arg(guid));
        const QJsonArray rows = shown.value(QLatin1String("list")).toArray();
        EXPECT_EQ(rows.size(), clients);
        const QJsonObject own = rows.at(index).toObject();
        EXPECT_EQ(own.value(QLatin1String("rate")).toString(),
            QStringLiteral("%1.00").arg(1000 * (index + 1) + saves))
            << "the last edit of client " << index;
        const std::lock_guard<std::mutex> lock(mutex);
        digests.append(status.value(QLatin1String("digest")).toString());
    });
    EXPECT_EQ(digests.size(), clients);
    EXPECT_EQ(digests.removeDuplicates(), clients - 1) << "the copies differ";
    expectStoreInOrder(everything ? 600000 : 60000);
}

} // namespace kvx::test
