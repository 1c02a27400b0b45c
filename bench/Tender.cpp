#include "Tender.h"

#include "KVXSQLite/KVXProjectDatabase.h"
#include "KVXSQLite/Statement.h"
#include "content/Schema.h"

#include <cstdio>
#include <random>
#include <stdexcept>

namespace kvx::bench {

namespace {

using sqlite::Statement;

/// Deterministic on every machine: the distributions of the standard library are not.
class Chance {
public:
    int below(int bound) { return static_cast<int>(m_engine() % static_cast<unsigned>(bound)); }

    std::string words(int count)
    {
        static constexpr const char *stock[] = { "reinforced", "concrete", "C25/30", "formwork",
            "excavate", "soil", "class", "3", "to", "5", "including", "disposal", "masonry",
            "sand-lime", "brick", "d", "=", "24", "cm", "plaster", "two-coat", "screed",
            "insulation", "mineral", "wool", "WLG", "035", "supply", "and", "install", "according",
            "drawing", "as", "specified", "in", "chapter", "preliminaries", "door", "frame",
            "galvanised", "steel", "primer", "coating", "joints", "sealed", "waterproof",
            "membrane", "drainage" };
        std::string text;
        for (int i = 0; i < count; ++i) {
            text += stock[below(static_cast<int>(std::size(stock)))];
            text += i % 14 == 13 ? '\n' : ' ';
        }
        return text;
    }

private:
    std::mt19937 m_engine { 20'240'601 };
};

constexpr int itemsOfChapter = 50;
constexpr const char *units[] = { "m", "m2", "m3", "pcs", "t", "h" };

std::string numbered(const char *format, int number)
{
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

bool writeChapters(sqlite3 *connection, Chance &chance, int items)
{
    Statement insert(connection, "INSERT INTO chapter VALUES (?, ?, ?, ?, ?)");
    bool written = true;
    for (int id = 1; id <= (items - 1) / itemsOfChapter + 1 && written; ++id) {
        insert.bind(id).bindNull().bind(id).bind(numbered("%04d", id)).bind(chance.words(3));
        written = insert.run();
    }
    return written;
}

bool writeItems(sqlite3 *connection, Chance &chance, const TenderSize &size)
{
    Statement insert(connection, "INSERT INTO item VALUES (?, ?, ?, ?, ?, ?, ?, '', ?, ?)");
    bool written = true;
    for (int id = 1; id <= size.items && written; ++id) {
        const int chapter = (id - 1) / itemsOfChapter + 1;
        insert.bind(id).bind(chapter).bind(id);
        insert.bind(
            numbered("%04d", chapter) + numbered(".%04d", (id - 1) % itemsOfChapter * 10 + 10));
        insert.bind(chance.words(4));
        insert.bind(chance.words(size.words ? size.words / 2 + chance.below(size.words) : 0));
        insert.bind(units[chance.below(6)])
            .bind(1000 + chance.below(900'000))
            .bind(chance.below(400'000));
        written = insert.run();
    }
    return written;
}

bool writeBuildUps(sqlite3 *connection, Chance &chance, const TenderSize &size)
{
    Statement resource(connection, "INSERT INTO resource VALUES (?, ?, ?, ?, ?)");
    bool written = true;
    for (int id = 1; id <= size.resources && written; ++id) {
        resource.bind(id)
            .bind(numbered("R%05d", id))
            .bind(chance.words(3))
            .bind(units[chance.below(6)]);
        written = resource.bind(chance.below(200'000)).run();
    }
    Statement buildUp(connection, "INSERT OR IGNORE INTO build_up VALUES (?, ?, ?)");
    for (int row = 0; row < size.items * size.buildUps && written; ++row) {
        buildUp.bind(row / size.buildUps + 1).bind(chance.below(size.resources) + 1);
        written = buildUp.bind(chance.below(50'000)).run();
    }
    return written;
}

} // namespace

void writeTender(const QString &path, const QString &guid, const TenderSize &size)
{
    QString error;
    const auto database = KVXProjectDatabase::create(path, guid, content::projectSchema(), &error);
    if (!database)
        throw std::runtime_error(error.toStdString());
    Chance chance;
    const bool filled = database->edit([&](sqlite3 *connection) {
        return writeChapters(connection, chance, size.items) && writeItems(connection, chance, size)
            && writeBuildUps(connection, chance, size);
    });
    if (!filled || !database->sealBase() || !database->close())
        throw std::runtime_error(database->errorText().toStdString());
}

void changeRows(KVXProjectDatabase &database, int firstItem, int rows, int round)
{
    const bool changed = database.edit([&](sqlite3 *connection) {
        Statement update(
            connection, "UPDATE item SET short_text = ?, quantity = ?, rate = ? WHERE id = ?");
        bool written = true;
        for (int id = firstItem; id < firstItem + rows && written; ++id) {
            update.bind(
                numbered("priced by the estimator, round %d", round) + numbered(", item %d", id));
            written = update.bind(1'000'000 + round * 7 + id)
                          .bind(500'000 + round * 3 + id)
                          .bind(id)
                          .run();
        }
        return written;
    });
    if (!changed)
        throw std::runtime_error(database.errorText().toStdString());
}

} // namespace kvx::bench
