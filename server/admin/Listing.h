#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace kvx::server {

/// One value of a listing, as people and as programs read it.
class Cell {
public:
    Cell(std::string text); ///< "-" for people where it is empty
    Cell(const char *text)
        : Cell(std::string(text))
    {
    }
    template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
    Cell(T number)
        : Cell(std::to_string(number), std::to_string(number), Form::Right)
    {
    }

    /// true or false; for people a word.
    static Cell flag(bool value, const char *yes, const char *no);
    /// UTC; for people to the minute in the time zone of the process. Empty where there is none.
    static Cell time(const std::optional<Time> &time);
    /// A number of bytes; for people with a unit.
    static Cell bytes(std::int64_t count);

    /// For people. Control characters are replaced: some texts come from clients.
    const std::string &shown() const { return m_shown; }
    const std::string &plain() const { return m_plain; } ///< for tables of programs (CSV)
    std::string json() const;
    bool isRight() const { return m_form == Form::Right; }

private:
    enum class Form { Text, Word, Right };
    Cell(std::string plain, std::string shown, Form form)
        : m_plain(std::move(plain))
        , m_shown(std::move(shown))
        , m_form(form)
    {
    }

    std::string m_plain;
    std::string m_shown;
    Form m_form;
};

/// Rows of a command's answer: an aligned table for people, an array of objects or CSV for
/// programs.
class Listing {
public:
    struct Column {
        const char *key; ///< of a row's object, and heading in CSV
        const char *heading;
    };
    explicit Listing(std::vector<Column> columns)
        : m_columns(std::move(columns))
    {
    }

    /// As many cells as columns.
    void add(std::vector<Cell> row) { m_rows.push_back(std::move(row)); }

    bool isEmpty() const { return m_rows.empty(); }

    std::string lines(std::size_t row) const; ///< for people, "Heading  value" each
    std::string table() const; ///< without the last line feed
    std::string json() const;
    std::string jsonOf(std::size_t row) const;
    std::string csv() const; ///< RFC 4180 but for the line ends

private:
    std::vector<Column> m_columns;
    std::vector<std::vector<Cell>> m_rows;
};

/// One field of a CSV line.
std::string csvField(const std::string &text);

/// A size for people: "1.5 MiB".
std::string sizeForPeople(std::int64_t bytes);

/// Without control characters, which would act on a terminal.
std::string printable(std::string text);

} // namespace kvx::server
