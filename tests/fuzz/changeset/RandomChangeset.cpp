#include "RandomChangeset.h"

#include "../Require.h"

#include <iterator>
#include <random>
#include <sqlite3.h>

namespace kvx::test {

namespace {

class RandomEdits {
public:
    explicit RandomEdits(unsigned int seed)
        : m_random(seed)
    {
    }

    std::string next()
    {
        switch (m_random() % 8) {
        case 0:
            return "INSERT OR IGNORE INTO t VALUES (" + number() + ", " + text() + ", " + value()
                + ", " + value() + ")";
        case 1:
            return "INSERT OR IGNORE INTO u VALUES (" + number() + ", " + value() + ")";
        case 2:
            return "UPDATE t SET c = " + value() + ", d = " + value() + " WHERE a = " + number();
        case 3:
            return "UPDATE t SET d = " + value();
        case 4:
            return "UPDATE u SET x = " + value() + " WHERE id <= " + number();
        case 5:
            return "DELETE FROM t WHERE a = " + number();
        case 6:
            return "DELETE FROM u WHERE id = " + number();
        default:
            return "UPDATE OR IGNORE t SET b = " + text() + " WHERE a = " + number();
        }
    }

private:
    std::string number() { return std::to_string(m_random() % 5); }
    std::string text()
    {
        static const char *const texts[] = { "'k'", "'l'", "''", "'\xc3\xa4'" };
        return texts[m_random() % std::size(texts)];
    }
    std::string value()
    {
        static const char *const values[] = { "NULL", "1", "2", "1.5", "-9223372036854775808",
            "9e999", "'k'", "x'0102'", "zeroblob(300)", "''" };
        return values[m_random() % std::size(values)];
    }

    std::minstd_rand m_random;
};

} // namespace

std::string randomChangeset(const char *schema, unsigned int seed)
{
    sqlite3 *database = nullptr;
    require(sqlite3_open(":memory:", &database) == SQLITE_OK
            && sqlite3_exec(database, schema, nullptr, nullptr, nullptr) == SQLITE_OK,
        "there is a database");
    RandomEdits edits(seed);
    const auto run = [database](const std::string &statement) {
        sqlite3_exec(database, statement.c_str(), nullptr, nullptr, nullptr);
    };
    for (unsigned int i = 0; i < seed % 3; ++i)
        run(edits.next()); // what only the colleague's copy holds
    sqlite3_session *session = nullptr;
    sqlite3session_create(database, "main", &session);
    sqlite3session_attach(session, nullptr);
    for (unsigned int i = 0; i < 1 + seed % 7; ++i)
        run(edits.next());
    int size = 0;
    void *data = nullptr;
    sqlite3session_changeset(session, &size, &data);
    std::string changeset;
    if (size > 0)
        changeset.assign(static_cast<const char *>(data), static_cast<std::size_t>(size));
    sqlite3_free(data);
    sqlite3session_delete(session);
    sqlite3_close(database);
    return changeset;
}

} // namespace kvx::test
