#include "content/BillStore.h"

#include "KVXSQLite/Statement.h"

#include <sqlite3.h>

namespace kvx::content {

namespace {

using kvx::sqlite::Statement;

constexpr const char *selectItem
    = "SELECT i.id, i.number, i.short_text, i.long_text, i.unit, i.kind, i.quantity, i.rate "
      "FROM item i LEFT JOIN chapter c ON c.id = i.chapter ";

std::string utf8(const QString &text)
{
    return text.toStdString();
}

Statement &bindRate(Statement &statement, const std::optional<Thousandths> &rate)
{
    return rate ? statement.bind(*rate) : statement.bindNull();
}

StoredItem readItem(const Statement &row)
{
    StoredItem item;
    item.id = static_cast<int>(row.integer(0));
    item.number = QString::fromStdString(row.text(1));
    item.shortText = QString::fromStdString(row.text(2));
    item.longText = QString::fromStdString(row.text(3));
    item.unit = QString::fromStdString(row.text(4));
    item.kind = QString::fromStdString(row.text(5));
    item.quantity = row.integer(6);
    if (row.type(7) != SQLITE_NULL)
        item.rate = row.integer(7);
    return item;
}

int nextPosition(sqlite3 *connection, const char *table)
{
    const std::string sql = std::string("SELECT coalesce(max(position), 0) + 1 FROM ") + table;
    Statement statement(connection, sql.c_str());
    return statement.step() == SQLITE_ROW ? static_cast<int>(statement.integer(0)) : 1;
}

std::optional<StoredItem> firstItem(Statement &statement)
{
    if (statement.step() != SQLITE_ROW)
        return std::nullopt;
    return readItem(statement);
}

} // namespace

bool BillStore::append(const Bill &bill, const std::function<int()> &newId,
    std::vector<int> *chapterIds, std::vector<int> *itemIds, std::optional<int> under)
{
    std::vector<int> chapters;
    const auto bindChapter = [&](Statement &statement, int index) {
        if (index >= 0)
            statement.bind(chapters.at(static_cast<std::size_t>(index)));
        else if (under)
            statement.bind(*under);
        else
            statement.bindNull();
    };
    Statement insertChapter(m_connection, "INSERT INTO chapter VALUES (?, ?, ?, ?, ?)");
    int position = nextPosition(m_connection, "chapter");
    for (const Bill::Chapter &chapter : bill.chapters) {
        const int id = newId();
        if (id < 0)
            return false;
        insertChapter.bind(id);
        bindChapter(insertChapter, chapter.parent);
        insertChapter.bind(position++).bind(utf8(chapter.number)).bind(utf8(chapter.title));
        if (!insertChapter.run())
            return false;
        chapters.push_back(id);
    }

    Statement insertItem(m_connection, "INSERT INTO item VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    position = nextPosition(m_connection, "item");
    std::vector<int> items;
    for (const Bill::Item &item : bill.items) {
        const int id = newId();
        if (id < 0)
            return false;
        insertItem.bind(id);
        bindChapter(insertItem, item.chapter);
        insertItem.bind(position++).bind(utf8(item.number)).bind(utf8(item.shortText));
        insertItem.bind(utf8(item.longText)).bind(utf8(item.unit)).bind(utf8(item.kind));
        if (!bindRate(insertItem.bind(item.quantity), item.rate).run())
            return false;
        items.push_back(id);
    }
    if (chapterIds)
        *chapterIds = chapters;
    if (itemIds)
        *itemIds = items;
    return true;
}

bool BillStore::change(int id, const ItemChange &change)
{
    auto stored = item(id);
    if (!stored)
        return false;
    Statement update(m_connection,
        "UPDATE item SET short_text = ?, long_text = ?, unit = ?, quantity = ?, rate = ? "
        "WHERE id = ?");
    update.bind(utf8(change.shortText.value_or(stored->shortText)));
    update.bind(utf8(change.longText.value_or(stored->longText)));
    update.bind(utf8(change.unit.value_or(stored->unit)));
    update.bind(change.quantity.value_or(stored->quantity));
    bindRate(update, change.rate ? change.rate : stored->rate).bind(id);
    return update.run();
}

bool BillStore::addItem(int id, const QString &chapterNumber, const StoredItem &item)
{
    const std::optional<int> inChapter = chapterId(chapterNumber);
    if (!inChapter && !chapterNumber.isEmpty())
        return false;

    Statement insert(m_connection, "INSERT INTO item VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(id);
    if (inChapter)
        insert.bind(*inChapter);
    else
        insert.bindNull();
    insert.bind(nextPosition(m_connection, "item")).bind(utf8(item.number));
    insert.bind(utf8(item.shortText)).bind(utf8(item.longText)).bind(utf8(item.unit));
    insert.bind(utf8(item.kind)).bind(item.quantity);
    return bindRate(insert, item.rate).run();
}

bool BillStore::removeItem(int id)
{
    Statement remove(m_connection, "DELETE FROM item WHERE id = ?");
    return remove.bind(id).run();
}

std::optional<StoredItem> BillStore::item(int id) const
{
    Statement statement(m_connection, (std::string(selectItem) + "WHERE i.id = ?").c_str());
    return firstItem(statement.bind(id));
}

std::optional<StoredItem> BillStore::itemByNumber(const QString &number) const
{
    Statement statement(m_connection,
        (std::string(selectItem) + "WHERE i.number = ? ORDER BY i.position, i.id LIMIT 1").c_str());
    return firstItem(statement.bind(utf8(number)));
}

std::vector<StoredItem> BillStore::items(const QString &chapterNumber) const
{
    Statement statement(m_connection,
        (std::string(selectItem)
            + "WHERE ? = '' OR c.number = ? OR substr(c.number, 1, length(?)) = ? "
              "ORDER BY i.position, i.id")
            .c_str());
    const std::string number = utf8(chapterNumber);
    const std::string below = number + ".";
    statement.bind(number).bind(number).bind(below).bind(below);
    std::vector<StoredItem> items;
    while (statement.step() == SQLITE_ROW)
        items.push_back(readItem(statement));
    return items;
}

std::optional<int> BillStore::chapterId(const QString &number) const
{
    Statement statement(m_connection, "SELECT id FROM chapter WHERE number = ?");
    statement.bind(utf8(number));
    if (statement.step() != SQLITE_ROW)
        return std::nullopt;
    return static_cast<int>(statement.integer(0));
}

int BillStore::itemCount() const
{
    Statement statement(m_connection, "SELECT count(*) FROM item");
    return statement.step() == SQLITE_ROW ? static_cast<int>(statement.integer(0)) : 0;
}

std::int64_t BillStore::totalInCents() const
{
    Statement statement(m_connection,
        "SELECT quantity, rate FROM item WHERE rate IS NOT NULL "
        "AND kind NOT IN ('note', 'optional', 'alternative')");
    std::int64_t total = 0;
    while (statement.step() == SQLITE_ROW)
        total += amountInCents(statement.integer(0), statement.integer(1)).value_or(0);
    return total;
}

} // namespace kvx::content
