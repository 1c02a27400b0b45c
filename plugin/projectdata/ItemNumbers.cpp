#include "projectdata/ItemNumbers.h"

#include <algorithm>

using Lock = std::lock_guard<std::mutex>;

ItemNumberRange ItemNumbers::range() const
{
    const Lock lock(m_mutex);
    return m_range;
}

void ItemNumbers::setRange(const ItemNumberRange &range)
{
    const Lock lock(m_mutex);
    m_range = range;
}

void ItemNumbers::startBlock(const ItemNumberRange &block)
{
    const Lock lock(m_mutex);
    m_range = block;
    m_last = block.min - 1;
}

bool ItemNumbers::isPositioned() const
{
    const Lock lock(m_mutex);
    return m_last != -1;
}

bool ItemNumbers::needsScan() const
{
    const Lock lock(m_mutex);
    return m_last == -1 || (!m_scanned && !m_handedOut.isEmpty());
}

void ItemNumbers::markScanned()
{
    const Lock lock(m_mutex);
    m_scanned = true;
}

void ItemNumbers::continueAfter(const ItemNumberRange &range, int highestUsed)
{
    const Lock lock(m_mutex);
    // Kept as is: in a range of which nothing is in use the numbers start after MinID.
    m_last = range.contains(highestUsed) ? highestUsed : range.min;
    m_highestUsed = std::max(m_highestUsed, highestUsed);
}

int ItemNumbers::take()
{
    const Lock lock(m_mutex);
    while (m_last < m_range.max && m_range.contains(m_last + 1)) {
        m_scanned = true;
        ++m_last;
        m_highestUsed = std::max(m_highestUsed, m_last);
        // Kept as is: passes over numbers that are handed out; a scan sees only what is stored.
        if (!m_handedOut.contains(m_last)) {
            m_handedOut.insert(m_last);
            return m_last;
        }
    }
    return -1;
}

bool ItemNumbers::isUsedUp() const
{
    const Lock lock(m_mutex);
    return m_range.max == m_last;
}

int ItemNumbers::highestUsed() const
{
    const Lock lock(m_mutex);
    return m_highestUsed;
}

bool ItemNumbers::wasHandedOut(int number) const
{
    const Lock lock(m_mutex);
    return m_handedOut.contains(number);
}

void ItemNumbers::addHandedOut(const QList<int> &numbers)
{
    const Lock lock(m_mutex);
    for (const int number : numbers)
        m_handedOut.insert(number);
}

QSet<int> ItemNumbers::handedOut() const
{
    const Lock lock(m_mutex);
    return m_handedOut;
}

void ItemNumbers::forgetHandedOut(const QSet<int> &numbers)
{
    const Lock lock(m_mutex);
    m_handedOut.subtract(numbers);
}

void ItemNumbers::addNewItems(int moduleType, const QList<int> &ids)
{
    const Lock lock(m_mutex);
    QSet<int> &items = m_newItems[moduleType];
    for (const int id : ids) {
        if (m_range.isValid() && m_range.contains(id))
            items.insert(id);
    }
}

QMap<int, QSet<int>> ItemNumbers::newItems() const
{
    const Lock lock(m_mutex);
    return m_newItems;
}

void ItemNumbers::forgetNewItems(int moduleType, const QSet<int> &ids)
{
    const Lock lock(m_mutex);
    const auto items = m_newItems.find(moduleType);
    if (items != m_newItems.end())
        items->subtract(ids);
}
