#include "admin/Listing.h"
#include "base/JsonText.h"
#include "base/Text.h"

#include <algorithm>
#include <cstdio>

namespace kvx::server {

namespace {

std::string padded(const std::string &text, std::size_t width, bool right)
{
    const std::string blanks(width - std::min(width, characterCount(text)), ' ');
    return right ? blanks + text : text + blanks;
}

std::string withoutTrailingBlanks(std::string line)
{
    line.resize(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace

std::string printable(std::string text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x20 || byte == 0x7F) {
            text[i] = '?';
        } else if (byte == 0xC2 && i + 1 < text.size()
            && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
            text.replace(i, 2, "?"); // the control characters above ASCII
        }
    }
    return text;
}

Cell::Cell(std::string text)
    : m_plain(std::move(text))
    , m_shown(m_plain.empty() ? "-" : printable(m_plain))
    , m_form(Form::Text)
{
}

Cell Cell::flag(bool value, const char *yes, const char *no)
{
    return { value ? "true" : "false", value ? yes : no, Form::Word };
}

Cell Cell::time(const std::optional<Time> &time)
{
    return { time ? utcText(*time) : "", time ? minuteText(*time) : "-", Form::Text };
}

Cell Cell::bytes(std::int64_t count)
{
    return { std::to_string(count), sizeForPeople(count), Form::Right };
}

std::string Cell::json() const
{
    return m_form == Form::Text ? jsonText(m_plain) : m_plain;
}

std::string Listing::lines(std::size_t row) const
{
    std::size_t width = 0;
    for (const Column &column : m_columns)
        width = std::max(width, characterCount(column.heading));
    std::string text;
    for (std::size_t i = 0; i < m_columns.size(); ++i)
        text += (i == 0 ? "" : "\n") + padded(m_columns[i].heading, width + 2, false)
            + m_rows[row][i].shown();
    return text;
}

std::string Listing::table() const
{
    if (m_rows.empty())
        return "Nothing to show.";
    std::vector<std::size_t> widths;
    for (const Column &column : m_columns)
        widths.push_back(characterCount(column.heading));
    for (const auto &row : m_rows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], characterCount(row[i].shown()));
    }
    std::string text;
    for (std::size_t i = 0; i < m_columns.size(); ++i)
        text += padded(m_columns[i].heading, widths[i] + 2, false);
    text = withoutTrailingBlanks(text);
    for (const auto &row : m_rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += padded(row[i].shown(), widths[i], row[i].isRight()) + "  ";
        text += '\n' + withoutTrailingBlanks(line);
    }
    return text;
}

std::string Listing::jsonOf(std::size_t row) const
{
    std::string json = "{";
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        json += (i == 0 ? "\"" : ",\"") + std::string(m_columns[i].key) + "\":";
        json += m_rows[row][i].json();
    }
    return json + '}';
}

std::string Listing::json() const
{
    std::string json = "[";
    for (std::size_t row = 0; row < m_rows.size(); ++row)
        json += (row == 0 ? "" : ",") + jsonOf(row);
    return json + ']';
}

std::string Listing::csv() const
{
    std::string csv;
    for (const Column &column : m_columns)
        csv += (csv.empty() ? "" : ",") + std::string(column.key);
    for (const auto &row : m_rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += (i == 0 ? "" : ",") + csvField(row[i].plain());
        csv += '\n' + line;
    }
    return csv;
}

std::string csvField(const std::string &text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string field = "\"";
    for (const char c : text) {
        if (c == '"')
            field += '"';
        field += c;
    }
    return field + '"';
}

std::string sizeForPeople(std::int64_t bytes)
{
    static const char *const units[] = { "B", "KiB", "MiB", "GiB", "TiB" };
    auto amount = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (amount >= 1024 && unit + 1 < std::size(units)) {
        amount /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", amount, units[unit]);
    return text;
}

} // namespace kvx::server
