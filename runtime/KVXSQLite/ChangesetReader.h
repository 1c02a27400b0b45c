#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::sqlite {

/// One value of a changed row. `data` points into the changeset.
struct ChangedValue {
    enum Type : unsigned char { Absent, Integer, Real, Text, Blob, Null };
    Type type = Absent;
    std::uint64_t bits = 0; ///< Integer: two's complement; Real: IEEE 754
    const unsigned char *data = nullptr;
    std::size_t size = 0;
};

/// Walks a changeset record by record and refuses everything that is not exactly what the session
/// extension writes: SQLite's own reader hangs or crashes on some damaged input, so it never sees
/// a changeset that did not pass here. Borrows the bytes; needs no database.
class ChangesetReader {
public:
    enum class Step { Record, End, Malformed };
    enum class Operation : unsigned char { Delete = 9, Insert = 18, Update = 23 };

    static constexpr std::size_t maxBytes = 256U * 1024 * 1024;
    static constexpr std::size_t maxValue = 64U * 1024 * 1024;
    static constexpr std::size_t maxRecords = 5'000'000;
    static constexpr std::size_t maxColumns = 200;
    static constexpr std::size_t maxTables = 1'000;

    ChangesetReader(const unsigned char *data, std::size_t size);

    Step next();

    /// True right after the first record of a table.
    bool startsTable() const { return m_startsTable; }
    std::string_view table() const { return m_table; }
    /// One byte a column: its place in the primary key, or 0.
    std::string_view key() const { return m_key; }
    /// The bytes of the table's header and of this record: together a changeset of one change.
    std::string_view header() const { return m_header; }
    std::string_view record() const { return m_record; }
    Operation operation() const { return m_operation; }
    /// A value per column; empty for an insert.
    const std::vector<ChangedValue> &oldRow() const { return m_old; }
    /// A value per column; empty for a delete.
    const std::vector<ChangedValue> &newRow() const { return m_new; }

    /// Why the last step was Malformed, with the offset.
    const std::string &error() const { return m_error; }

private:
    Step malformed(const std::string &what);
    bool readHeader();
    bool readRecord();
    bool readRow(std::vector<ChangedValue> *row);
    bool readValue(ChangedValue *value);
    bool checkRows();
    bool readLength(std::size_t *length);
    bool fail(const char *what);
    std::string_view span(std::size_t from) const;
    std::size_t left() const { return m_size - m_at; }

    const unsigned char *m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
    std::size_t m_records = 0;
    bool m_startsTable = false;
    std::vector<std::string_view> m_tables;
    std::string_view m_table;
    std::string_view m_key;
    std::string_view m_header;
    std::string_view m_record;
    Operation m_operation = Operation::Insert;
    std::vector<ChangedValue> m_old;
    std::vector<ChangedValue> m_new;
    std::string m_error;
};

} // namespace kvx::sqlite
