#pragma once

#include "KVXSQLite/Schema.h"

#include <cstddef>
#include <string>

namespace kvx::sqlite {

/// Judges a changeset before SQLite sees a byte of it.
class ChangesetValidator {
public:
    /// Structure alone. An empty changeset is valid.
    bool check(const unsigned char *data, std::size_t size);
    /// Structure, and every table against the live ones: known, same number of columns, same key.
    bool check(const unsigned char *data, std::size_t size, const Schema &schema);

    /// Number of changed rows, after a check that returned true.
    std::size_t records() const { return m_records; }
    const std::string &error() const { return m_error; }

private:
    bool walk(const unsigned char *data, std::size_t size, const Schema *schema);

    std::size_t m_records = 0;
    std::string m_error;
};

} // namespace kvx::sqlite
