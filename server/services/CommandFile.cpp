#include "services/CommandFile.h"
#include "base/Digest.h"
#include "base/Text.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <vector>

namespace kvx::server {

namespace {

constexpr std::size_t headerSize = 512;
constexpr std::size_t signedSize = 480; // of the header, before its own digest
constexpr std::uint64_t largestPayload = std::uint64_t { 256 } << 20;
constexpr std::uint64_t largestValue = std::uint64_t { 64 } << 20;
constexpr std::uint64_t mostColumns = 200;
constexpr std::size_t mostTables = 1000;
constexpr std::size_t mostChanges = 5'000'000;
constexpr std::size_t longestName = 1000;

struct Fault {
    std::string text;
};

std::uint64_t number(std::string_view bytes)
{
    std::uint64_t value = 0;
    for (const char byte : bytes)
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

std::string hexOf(std::string_view bytes)
{
    return hex(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size());
}

/// The payload as it passes, digested.
class Payload {
public:
    Payload(const ReadBytes &read, std::uint64_t size)
        : m_read(read)
        , m_left(size)
        , m_digest(Digest::Kind::Sha256)
    {
    }
    bool atEnd() const { return m_left == 0 && m_position == m_filled; }
    unsigned char byte()
    {
        if (m_position == m_filled)
            fill();
        return static_cast<unsigned char>(m_buffer[m_position++]);
    }
    void skip(std::uint64_t count)
    {
        while (count > 0) {
            if (m_position == m_filled)
                fill();
            const auto step = std::min<std::uint64_t>(count, m_filled - m_position);
            m_position += step;
            count -= step;
        }
    }
    std::uint64_t varint()
    {
        std::uint64_t value = 0;
        for (int i = 0; i < 5; ++i) {
            const unsigned char next = byte();
            if (i == 0 && next == 0x80)
                break;
            value = value << 7 | (next & 0x7F);
            if ((next & 0x80) == 0)
                return value;
        }
        throw Fault { "a length in its changeset is not valid" };
    }
    std::string digest() { return m_digest.finish(); }

private:
    void fill()
    {
        if (m_left == 0)
            throw Fault { "its changeset ends in the middle of a change" };
        const auto wanted = std::min<std::uint64_t>(m_left, m_buffer.size());
        m_filled = m_read(m_buffer.data(), wanted);
        if (m_filled != wanted)
            throw Fault { "its command file ends too early" };
        m_left -= m_filled;
        m_position = 0;
        m_digest.add({ m_buffer.data(), m_filled });
    }

    const ReadBytes &m_read;
    std::uint64_t m_left;
    Digest m_digest;
    std::array<char, 64 * 1024> m_buffer;
    std::size_t m_position = 0;
    std::size_t m_filled = 0;
};

enum ValueType : unsigned char { Absent, Integer, Real, Text, Blob, Null };
enum Operation : unsigned char { Delete = 0x09, Insert = 0x12, Update = 0x17 };
constexpr unsigned char tableMark = 0x54;

/// The structure of a changeset; the values themselves are passed over.
class Changeset {
public:
    explicit Changeset(Payload &payload)
        : m_payload(payload)
    {
    }

    void check()
    {
        bool first = true;
        bool empty = false;
        while (!m_payload.atEnd()) {
            const unsigned char mark = m_payload.byte();
            if (mark == tableMark) {
                if (empty)
                    refuse("has no change");
                readTable();
                empty = true;
            } else if (first) {
                throw Fault { "its changeset does not begin with a table" };
            } else {
                readChange(mark);
                empty = false;
            }
            first = false;
        }
        if (empty)
            refuse("has no change");
    }

private:
    [[noreturn]] void refuse(const std::string &what) const
    {
        throw Fault { "the table \"" + m_table + "\" of its changeset " + what };
    }

    void readTable()
    {
        const std::uint64_t columns = m_payload.varint();
        if (columns == 0 || columns > mostColumns)
            throw Fault { "a table of its changeset has no or more than 200 columns" };
        m_isKey.assign(columns, false);
        std::set<unsigned char> places;
        for (std::size_t i = 0; i < columns; ++i) {
            const unsigned char place = m_payload.byte();
            m_isKey[i] = place != 0;
            if (place != 0 && !places.insert(place).second)
                throw Fault { "a table of its changeset has two columns at one place of its key" };
        }
        m_table.clear();
        while (const unsigned char letter = m_payload.byte()) {
            m_table += static_cast<char>(letter);
            if (m_table.size() > longestName)
                throw Fault { "a table of its changeset has no name" };
        }
        if (m_table.empty() || !isValidUtf8(m_table))
            throw Fault { "a table of its changeset has no name" };
        if (places.empty() || *places.rbegin() != places.size())
            refuse("has no key");
        const std::string key = lowerAscii(m_table);
        if (key.rfind("sqlite_", 0) == 0 || key.rfind("kvx_", 0) == 0)
            refuse("is none of a project's own");
        if (!m_tables.insert(m_table).second)
            refuse("stands there twice");
        if (m_tables.size() > mostTables)
            throw Fault { "its changeset has more than 1,000 tables" };
    }

    void readChange(unsigned char operation)
    {
        if (operation != Insert && operation != Update && operation != Delete)
            refuse("has a change of an unknown kind");
        if (m_payload.byte() > 1)
            refuse("has a change that is neither direct nor indirect");
        if (++m_changes > mostChanges)
            throw Fault { "its changeset has more than 5,000,000 changes" };
        if (operation == Update)
            readUpdate();
        else
            readWholeRow();
    }

    void readWholeRow()
    {
        for (const auto isKey : m_isKey) {
            const ValueType type = readValue();
            if (type == Absent)
                refuse("has a row without all of its columns");
            if (type == Null && isKey)
                refuse("has a row without a key");
        }
    }

    void readUpdate()
    {
        std::vector<bool> before(m_isKey.size());
        for (std::size_t i = 0; i < m_isKey.size(); ++i) {
            const ValueType type = readValue();
            before[i] = type != Absent;
            if (m_isKey[i] && (type == Absent || type == Null))
                refuse("has an update without the row's key");
        }
        bool changes = false;
        for (std::size_t i = 0; i < m_isKey.size(); ++i) {
            const bool after = readValue() != Absent;
            if (m_isKey[i] ? after : after != before[i])
                refuse("has an update whose two rows do not agree");
            changes = changes || after;
        }
        if (!changes)
            refuse("has an update that changes nothing");
    }

    ValueType readValue()
    {
        const unsigned char type = m_payload.byte();
        if (type == Integer || type == Real) {
            m_payload.skip(8);
        } else if (type == Text || type == Blob) {
            const std::uint64_t length = m_payload.varint();
            if (length > largestValue)
                refuse("has a value of more than 64 MiB");
            m_payload.skip(length);
        } else if (type != Absent && type != Null) {
            refuse("has a value of an unknown type");
        }
        return static_cast<ValueType>(type);
    }

    Payload &m_payload;
    std::set<std::string> m_tables;
    std::string m_table;
    std::vector<bool> m_isKey;
    std::size_t m_changes = 0;
};

bool isZero(std::string_view bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; });
}

/// Throws where the header is not right; the payload's length.
std::uint64_t checkHeader(std::string_view header, const std::string &guid, std::int64_t version)
{
    static constexpr std::string_view start("KVXLOG\x1a\x0a\x00\x01\x02\x00", 12);
    if (header.substr(0, start.size()) != start)
        throw Fault { "its entry is no command file of format 1" };
    if (sha256(header.substr(0, signedSize)) != hexOf(header.substr(signedSize)))
        throw Fault { "the header of its command file is damaged" };
    const std::uint64_t author = number(header.substr(62, 2));
    if (author > 254 || !isZero(header.substr(152 + author, 328 - author))
        || !isValidUtf8(header.substr(152, author)))
        throw Fault { "the author of its command file is not valid" };
    if (guidKey(std::string(header.substr(24, 38))) != guidKey(guid))
        throw Fault { "its command file belongs to another project" };
    const std::uint64_t published = number(header.substr(12, 4));
    if (published != static_cast<std::uint64_t>(version))
        throw Fault { "its command file publishes version " + std::to_string(published)
            + " instead of " + std::to_string(version) };
    const std::uint64_t size = number(header.substr(112, 8));
    if (size > largestPayload)
        throw Fault { "its changeset is larger than 256 MiB" };
    return size;
}

} // namespace

std::optional<std::string> faultOfCommandFile(
    const ReadBytes &read, const std::string &guid, std::int64_t version)
{
    try {
        std::array<char, headerSize> bytes;
        if (read(bytes.data(), bytes.size()) != bytes.size())
            throw Fault { "its command file ends too early" };
        const std::string_view header(bytes.data(), bytes.size());
        Payload payload(read, checkHeader(header, guid, version));
        Changeset(payload).check();
        if (payload.digest() != hexOf(header.substr(120, 32)))
            throw Fault { "the changeset of its command file is damaged" };
        char more = 0;
        if (read(&more, 1) != 0)
            throw Fault { "its command file has bytes left over" };
        return std::nullopt;
    } catch (const Fault &fault) {
        return fault.text;
    }
}

} // namespace kvx::server
