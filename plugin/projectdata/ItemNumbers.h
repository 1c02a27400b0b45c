#pragma once

#include <QList>
#include <QMap>
#include <QSet>
#include <mutex>

/// A block of item numbers that the server reserved, both ends included.
struct ItemNumberRange {
    int min = -1;
    int max = -1;

    bool isValid() const { return min >= 0 && min < max; }
    bool contains(int number) const { return min <= number && number <= max; }
    bool operator==(const ItemNumberRange &other) const
    {
        return min == other.min && max == other.max;
    }
};

/// Book of one project's item numbers: the block held, where it continues, what was handed out
/// and which created items the server does not know yet. Thread-safe; calls nothing outside, so
/// its lock is never held over a request or a signal.
class ItemNumbers {
public:
    ItemNumberRange range() const;
    bool hasRange() const { return range().isValid(); }
    /// Keeps the place where the numbers continue.
    void setRange(const ItemNumberRange &range);
    /// Goes on with a block that follows a used-up one: its first number is handed out next.
    void startBlock(const ItemNumberRange &block);

    /// The place where the numbers continue is known.
    bool isPositioned() const;
    /// The database has to be asked which numbers are in use.
    bool needsScan() const;
    void markScanned();
    /// Continues after the highest number in use; -1: none of the range is.
    void continueAfter(const ItemNumberRange &range, int highestUsed);

    /// Hands out the next number of the range; -1 when there is none. A number is never handed
    /// out twice between two saves.
    int take();
    /// The last number of the block has been handed out.
    bool isUsedUp() const;
    /// The highest number known to be in use; -1: none.
    int highestUsed() const;

    bool wasHandedOut(int number) const;
    /// Enters numbers that came other than by take().
    void addHandedOut(const QList<int> &numbers);
    QSet<int> handedOut() const;
    void forgetHandedOut(const QSet<int> &numbers);

    /// Enters those that lie in the range as created by this user; the module becomes known even
    /// when none does.
    void addNewItems(int moduleType, const QList<int> &ids);
    /// Module to created items that are not checked out on the server yet.
    QMap<int, QSet<int>> newItems() const;
    void forgetNewItems(int moduleType, const QSet<int> &ids);

private:
    mutable std::mutex m_mutex; // guards all that follows
    ItemNumberRange m_range;
    int m_last = -1; // handed out last
    int m_highestUsed = -1;
    bool m_scanned = false;
    QSet<int> m_handedOut;
    QMap<int, QSet<int>> m_newItems;
};
