#include "store/Migrations.h"
#include "base/Digest.h"
#include "store/Db.h"

#include <FailPoint.h>

namespace kvx::server {

namespace {

/// The statements of a migration text, which holds no ";" but at their ends and in comments.
std::vector<std::string> statementsOf(const std::string &sql)
{
    std::vector<std::string> statements;
    std::string current;
    for (std::size_t begin = 0; begin < sql.size();) {
        const std::size_t end = std::min(sql.find('\n', begin), sql.size());
        const std::string line = sql.substr(begin, end - begin);
        begin = end + 1;
        if (line.rfind("--", 0) == 0 || (line.empty() && current.empty()))
            continue;
        current += line + '\n';
        if (!line.empty() && line.back() == ';') {
            statements.push_back(current);
            current.clear();
        }
    }
    if (!current.empty())
        statements.push_back(current);
    return statements;
}

void makeMigrationTable(Db &db)
{
    db.execute("CREATE TABLE IF NOT EXISTS migration (number INTEGER NOT NULL PRIMARY KEY, "
               "name TEXT NOT NULL, digest CHAR(64) NOT NULL, at BIGINT NOT NULL)");
}

} // namespace

std::vector<Migration> pendingMigrations(Db &db, const std::vector<Migration> &known)
{
    makeMigrationTable(db);
    const auto applied = db.rows<int, std::string, std::string>(
        "SELECT number, name, digest FROM migration ORDER BY number");
    if (applied.size() > known.size()) {
        const auto &[number, name, digest] = applied.back();
        throw MigrationError("the database has the schema of a newer program (step "
            + std::to_string(number) + " \"" + name + "\"); use that program, or restore a backup");
    }
    for (std::size_t i = 0; i < applied.size(); ++i) {
        const auto &[number, name, digest] = applied[i];
        if (number != known[i].number || digest != sha256(known[i].sql)) {
            throw MigrationError("step " + std::to_string(number) + " \"" + name
                + "\" of the database's schema is not the one this program was built with");
        }
    }
    return { known.begin() + static_cast<std::ptrdiff_t>(applied.size()), known.end() };
}

int migrate(Db &db, Time now, const std::vector<Migration> &known)
{
    int count = 0;
    while (true) {
        // Inside the transaction: another process may have been quicker.
        makeMigrationTable(db);
        Transaction transaction(db, Transaction::Kind::Write);
        const std::vector<Migration> pending = pendingMigrations(db, known);
        if (pending.empty())
            return count;
        const Migration &step = pending.front();
        for (const std::string &statement : statementsOf(step.sql)) {
            db.execute(statement);
            if (KVX_FAIL_POINT("migration/statement run"))
                throw DbError(DbError::Kind::Full, "database or disk is full");
        }
        db.run("INSERT INTO migration (number, name, digest, at) VALUES (:number, :name, :digest, "
               ":at)",
            { { "number", step.number }, { "name", step.name }, { "digest", sha256(step.sql) },
                { "at", now } });
        transaction.commit();
        ++count;
    }
}

} // namespace kvx::server
