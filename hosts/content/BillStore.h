#pragma once

#include "content/Bill.h"

#include <QString>
#include <functional>
#include <optional>
#include <vector>

struct sqlite3;

namespace kvx::content {

/// One item as it stands in a project.
struct StoredItem {
    int id = 0;
    QString number;
    QString shortText;
    QString longText;
    QString unit;
    QString kind;
    Thousandths quantity = 0;
    std::optional<Thousandths> rate;
};

/// New values of one item; what is not set stays.
struct ItemChange {
    std::optional<QString> shortText;
    std::optional<QString> longText;
    std::optional<QString> unit;
    std::optional<Thousandths> quantity;
    std::optional<Thousandths> rate;
};

/// Bills of quantities in the tables of a project. The connection is borrowed; the operations that
/// write belong inside an edit of the project database. False or nothing on a database error.
class BillStore {
public:
    explicit BillStore(sqlite3 *connection)
        : m_connection(connection)
    {
    }

    /// Appends the bill behind what is there. newId gives the row numbers, -1 when there are none
    /// left (then nothing may be kept). chapterIds and itemIds, where given, receive them. What
    /// stands in no chapter of the bill comes into the project's chapter under, where given.
    bool append(const Bill &bill, const std::function<int()> &newId,
        std::vector<int> *chapterIds = nullptr, std::vector<int> *itemIds = nullptr,
        std::optional<int> under = std::nullopt);
    bool change(int id, const ItemChange &change);
    bool addItem(int id, const QString &chapterNumber, const StoredItem &item);
    bool removeItem(int id);

    /// By row number or, with number, by the item's own number (first in order).
    std::optional<StoredItem> item(int id) const;
    std::optional<StoredItem> itemByNumber(const QString &number) const;
    /// In the bill's order; below the chapter of this number, or all when it is empty.
    std::vector<StoredItem> items(const QString &chapterNumber = {}) const;
    /// Row number of the chapter with this number.
    std::optional<int> chapterId(const QString &number) const;
    int itemCount() const;
    /// Sum of the items' amounts in cents, without notes, options and alternatives.
    std::int64_t totalInCents() const;

private:
    sqlite3 *m_connection;
};

} // namespace kvx::content
