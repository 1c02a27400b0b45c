#include "KVXSQLite/ChangesetReader.h"

#include <algorithm>
#include <cstring>

namespace kvx::sqlite {

ChangesetReader::ChangesetReader(const unsigned char *data, std::size_t size)
    : m_data(data)
    , m_size(size)
{
}

ChangesetReader::Step ChangesetReader::next()
{
    if (m_size > maxBytes)
        return malformed("it is larger than 256 MiB");
    m_startsTable = false;
    if (left() == 0)
        return Step::End;
    if (m_table.empty() || m_data[m_at] == 'T') {
        if (!readHeader())
            return malformed(m_error);
        m_startsTable = true;
    }
    if (++m_records > maxRecords)
        return malformed("it has more than 5,000,000 changes");
    return readRecord() ? Step::Record : malformed(m_error);
}

ChangesetReader::Step ChangesetReader::malformed(const std::string &what)
{
    m_error = what + " (at byte " + std::to_string(m_at) + ")";
    m_at = m_size = 0; // later steps end instead of reading on
    return Step::Malformed;
}

bool ChangesetReader::fail(const char *what)
{
    m_error = what;
    return false;
}

std::string_view ChangesetReader::span(std::size_t from) const
{
    return { reinterpret_cast<const char *>(m_data + from), m_at - from };
}

bool ChangesetReader::readHeader()
{
    const std::size_t start = m_at;
    if (m_data[m_at] == 'P')
        return fail("it is a patchset, which carries no old values");
    if (m_data[m_at] != 'T')
        return fail("a table header is missing");
    ++m_at;
    std::size_t columns = 0;
    if (!readLength(&columns))
        return fail("a column count is malformed");
    if (columns == 0 || columns > maxColumns || columns > left())
        return fail("a column count is out of range");
    const std::size_t keyStart = m_at;
    m_at += columns;
    m_key = span(keyStart);
    if (std::all_of(m_key.begin(), m_key.end(), [](char c) { return c == 0; }))
        return fail("a table has no primary key");

    const void *end = std::memchr(m_data + m_at, 0, left());
    if (!end)
        return fail("a table name has no end");
    const std::size_t nameStart = m_at;
    m_at = static_cast<std::size_t>(static_cast<const unsigned char *>(end) - m_data);
    m_table = span(nameStart);
    ++m_at;
    if (m_table.empty())
        return fail("a table name is empty");
    if (std::find(m_tables.begin(), m_tables.end(), m_table) != m_tables.end())
        return fail("a table appears twice");
    if (m_tables.size() == maxTables)
        return fail("it has more than 1,000 tables");
    m_tables.push_back(m_table);
    m_header = span(start);
    if (left() == 0)
        return fail("a table has no changes");
    return true;
}

bool ChangesetReader::readRecord()
{
    const std::size_t start = m_at;
    if (left() < 2)
        return fail("a change is cut");
    const unsigned char operation = m_data[m_at];
    if (operation != 9 && operation != 18 && operation != 23)
        return fail("a change is neither insert, update nor delete");
    m_operation = static_cast<Operation>(operation);
    if (m_data[m_at + 1] > 1)
        return fail("a change has an unknown mark");
    m_at += 2;
    m_old.clear();
    m_new.clear();
    if (m_operation != Operation::Insert && !readRow(&m_old))
        return false;
    if (m_operation != Operation::Delete && !readRow(&m_new))
        return false;
    m_record = span(start);
    return checkRows();
}

bool ChangesetReader::readRow(std::vector<ChangedValue> *row)
{
    row->resize(m_key.size());
    for (ChangedValue &value : *row)
        if (!readValue(&value))
            return false;
    return true;
}

bool ChangesetReader::readValue(ChangedValue *value)
{
    if (left() == 0)
        return fail("a row is cut");
    const unsigned char type = m_data[m_at++];
    if (type > ChangedValue::Null)
        return fail("a value has an unknown type");
    value->type = static_cast<ChangedValue::Type>(type);
    if (type == ChangedValue::Integer || type == ChangedValue::Real) {
        if (left() < 8)
            return fail("a number is cut");
        value->bits = 0;
        for (int i = 0; i < 8; ++i)
            value->bits = (value->bits << 8) | m_data[m_at++];
    } else if (type == ChangedValue::Text || type == ChangedValue::Blob) {
        std::size_t length = 0;
        if (!readLength(&length) || length > maxValue)
            return fail("the length of a value is malformed");
        if (length > left())
            return fail("a value is cut");
        value->data = m_data + m_at;
        value->size = length;
        m_at += length;
    }
    return true;
}

bool ChangesetReader::checkRows()
{
    bool changes = m_operation != Operation::Update;
    for (std::size_t i = 0; i < m_key.size(); ++i) {
        const bool key = m_key[i] != 0;
        const bool hasOld = !m_old.empty() && m_old[i].type != ChangedValue::Absent;
        const bool hasNew = !m_new.empty() && m_new[i].type != ChangedValue::Absent;
        if (m_operation == Operation::Update) {
            if (key && (!hasOld || hasNew))
                return fail("an update does not name its row by the old key alone");
            if (!key && hasOld != hasNew)
                return fail("an update has an old value without a new one");
            changes = changes || hasNew;
        } else if (!hasOld && !hasNew) {
            return fail("an insert or delete lacks a value");
        }
        if (key && (hasOld ? m_old[i] : m_new[i]).type == ChangedValue::Null)
            return fail("a key value is NULL");
    }
    return changes || fail("an update changes nothing");
}

bool ChangesetReader::readLength(std::size_t *length)
{
    // Big-endian groups of seven bits, the shortest form, at most 31 bits.
    std::size_t value = 0;
    for (int i = 0; i < 5 && left() > 0; ++i) {
        const unsigned char byte = m_data[m_at++];
        if (i == 0 && byte == 0x80)
            return false;
        value = (value << 7) | (byte & 0x7f);
        if (byte < 0x80) {
            *length = value;
            return value <= 0x7fffffff;
        }
    }
    return false;
}

} // namespace kvx::sqlite
