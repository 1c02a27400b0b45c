#include "KVXSQLite/ChangesetValidator.h"

#include "KVXSQLite/ChangesetReader.h"

#include <algorithm>

namespace kvx::sqlite {

namespace {

std::string mismatch(const ChangesetReader &reader, const Schema *schema)
{
    const std::string name = "table \"" + std::string(reader.table()) + "\"";
    if (isReservedTable(reader.table()))
        return name + " does not belong to the project's content";
    if (!schema)
        return {};
    const Table *table = schema->find(reader.table());
    if (!table)
        return name + " is not in this project";
    if (table->key.size() != reader.key().size())
        return name + " has other columns in this project";
    const bool sameKey = std::equal(table->key.begin(), table->key.end(), reader.key().begin(),
        [](unsigned char a, char b) { return a == static_cast<unsigned char>(b); });
    return sameKey ? std::string() : name + " has another key in this project";
}

} // namespace

bool ChangesetValidator::check(const unsigned char *data, std::size_t size)
{
    return walk(data, size, nullptr);
}

bool ChangesetValidator::check(const unsigned char *data, std::size_t size, const Schema &schema)
{
    return walk(data, size, &schema);
}

bool ChangesetValidator::walk(const unsigned char *data, std::size_t size, const Schema *schema)
{
    m_records = 0;
    m_error.clear();
    ChangesetReader reader(data, size);
    for (;;) {
        const ChangesetReader::Step step = reader.next();
        if (step == ChangesetReader::Step::End)
            return true;
        if (step == ChangesetReader::Step::Record && reader.startsTable())
            m_error = mismatch(reader, schema);
        if (step == ChangesetReader::Step::Malformed)
            m_error = reader.error();
        if (!m_error.empty())
            return false;
        ++m_records;
    }
}

} // namespace kvx::sqlite
