#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace kvx::server {

/// A statement or transaction that the database refused. Handlers catch it only where a constraint
/// decides (`isUnique()`); everything else ends as "Failed" or "StorageFull" in the dispatcher.
class DbError : public std::runtime_error {
public:
    enum class Kind { Unique, Constraint, Busy, Full, Other };
    DbError(Kind kind, const std::string &text)
        : std::runtime_error(text)
        , m_kind(kind)
    {
    }
    Kind kind() const { return m_kind; }
    bool isUnique() const { return m_kind == Kind::Unique; }

private:
    Kind m_kind;
};

/// One bound value: a whole number, a text, or null. Flags are bound as 0 and 1.
class DbValue {
public:
    template <class T, std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>, int> = 0>
    DbValue(T value)
        : m_number(static_cast<std::int64_t>(value))
        , m_isText(false)
    {
    }
    DbValue(std::string_view text)
        : m_text(text)
        , m_isText(true)
    {
    }
    DbValue(const std::string &text)
        : m_text(text)
        , m_isText(true)
    {
    }
    DbValue(std::string &&text)
        : m_text(std::move(text))
        , m_isText(true)
    {
    }
    DbValue(const char *text)
        : m_text(text)
        , m_isText(true)
    {
    }
    template <class T>
    DbValue(const std::optional<T> &value)
        : DbValue(value ? DbValue(*value) : DbValue(T {}))
    {
        m_isNull = !value;
    }

    std::int64_t number() const { return m_number; }
    const std::string &text() const { return m_text; }
    bool isText() const { return m_isText; }
    bool isNull() const { return m_isNull; }

private:
    std::int64_t m_number = 0;
    std::string m_text;
    bool m_isText;
    bool m_isNull = false;
};

/// A named parameter: {"email", address} fills ":email".
struct DbParam {
    const char *name;
    DbValue value;
};
using DbParams = std::initializer_list<DbParam>;

enum class DbColumn : char { Integer, Text };

/// The row that a running statement stands on. Reading null where no std::optional was asked for
/// throws DbError.
class DbRow {
public:
    virtual bool isNull(std::size_t column) const = 0;
    virtual std::int64_t integer(std::size_t column) const = 0;
    virtual const std::string &text(std::size_t column) const = 0;

protected:
    ~DbRow() = default;
};

namespace detail {
template <class T> struct ColumnOf {
    static_assert(std::is_integral_v<T>,
        "a column is a whole number, bool, std::string or an optional of these");
    static constexpr DbColumn type = DbColumn::Integer;
    static T read(const DbRow &row, std::size_t i) { return static_cast<T>(row.integer(i)); }
};
template <> struct ColumnOf<bool> {
    static constexpr DbColumn type = DbColumn::Integer;
    static bool read(const DbRow &row, std::size_t i) { return row.integer(i) != 0; }
};
template <> struct ColumnOf<std::string> {
    static constexpr DbColumn type = DbColumn::Text;
    static std::string read(const DbRow &row, std::size_t i) { return row.text(i); }
};
template <class T> struct ColumnOf<std::optional<T>> {
    static constexpr DbColumn type = ColumnOf<T>::type;
    static std::optional<T> read(const DbRow &row, std::size_t i)
    {
        return row.isNull(i) ? std::nullopt : std::optional<T>(ColumnOf<T>::read(row, i));
    }
};
} // namespace detail

/// One connection to the database, used by one thread at a time. Statements are literals with
/// ":name" parameters; each is prepared once per connection. Nothing outside server/store/ writes
/// SQL.
///
///     const auto row = db.row<std::int64_t, std::string>(
///         "SELECT id, name FROM users WHERE email = :email", {{"email", email}});
///     if (!row) …
///     const auto &[id, name] = *row;
///
/// Column types: whole numbers, bool (flag), std::string, and std::optional of these for nullable
/// ones.
class Db {
public:
    /// To be called once, before the first connection of the process: as no two threads share a
    /// connection, the engine needs no locks of its own, nor the common count of its memory.
    static void prepareEngine();

    /// Opens (and for `create` makes) the SQLite file. Throws DbError.
    enum class Mode { Existing, Create };
    explicit Db(const std::string &file, Mode mode = Mode::Existing);
    ~Db();
    Db(const Db &) = delete;
    Db &operator=(const Db &) = delete;

    /// Runs a changing statement; the number of rows it touched.
    std::int64_t run(std::string_view sql, DbParams params = {});

    /// Runs a text that is not worth keeping prepared (schema, pragmas).
    void execute(const std::string &sql);

    /// All rows, in order.
    template <class... C>
    std::vector<std::tuple<C...>> rows(std::string_view sql, DbParams params = {})
    {
        std::vector<std::tuple<C...>> found;
        each<C...>(
            sql, params, [&found](C... column) { found.emplace_back(std::move(column)...); });
        return found;
    }

    /// The first row, if there is one.
    template <class... C>
    std::optional<std::tuple<C...>> row(std::string_view sql, DbParams params = {})
    {
        std::optional<std::tuple<C...>> found;
        each<C...>(sql, params, [&found](C... column) {
            if (!found)
                found.emplace(std::move(column)...);
        });
        return found;
    }

    /// The first column of the first row, if there is one.
    template <class C> std::optional<C> value(std::string_view sql, DbParams params = {})
    {
        std::optional<C> found;
        each<C>(sql, params, [&found](C column) {
            if (!found)
                found.emplace(std::move(column));
        });
        return found;
    }

    /// Calls `act(columns…)` for each row as it is read. `act` may run other statements.
    template <class... C, class Act> void each(std::string_view sql, DbParams params, Act &&act)
    {
        const DbColumn types[] = { detail::ColumnOf<C>::type... };
        struct Reader : RowReader {
            explicit Reader(Act &act)
                : act(act)
            {
            }
            void read(const DbRow &row) override
            {
                Db::pass<C...>(row, act, std::index_sequence_for<C...>());
            }
            Act &act;
        } reader(act);
        select(sql, params, types, sizeof...(C), reader);
    }

    bool inTransaction() const { return m_inTransaction; }

private:
    friend class Transaction;
    friend class Savepoint;
    struct RowReader {
        virtual void read(const DbRow &row) = 0;

    protected:
        ~RowReader() = default;
    };
    struct Connection;
    class Statement;

    template <class... C, class Act, std::size_t... I>
    static void pass(const DbRow &row, Act &act, std::index_sequence<I...>)
    {
        act(detail::ColumnOf<C>::read(row, I)...);
    }

    std::int64_t select(std::string_view sql, DbParams params, const DbColumn *types,
        std::size_t count, RowReader &reader);

    std::unique_ptr<Connection> m_connection;
    bool m_inTransaction = false;
    bool m_syncs = true; ///< at each commit
};

/// Rolls back unless committed. A writing one is the only writer until it ends; a reading one sees
/// one snapshot throughout.
class Transaction {
public:
    /// WriteLazily does not wait for the disk: it outlives the process at once, a power cut only
    /// after the next Write. For what may be forgotten by both sides or comes again.
    enum class Kind { Read, Write, WriteLazily };
    Transaction(Db &db, Kind kind);
    ~Transaction();
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;

    /// Throws DbError; nothing was changed then.
    void commit();

private:
    Db &m_db;
    bool m_open = true;
};

/// A part of a transaction that can be taken back alone: undone unless `keep()` is called.
class Savepoint {
public:
    explicit Savepoint(Db &db);
    ~Savepoint();
    Savepoint(const Savepoint &) = delete;
    Savepoint &operator=(const Savepoint &) = delete;
    void keep();

private:
    Db &m_db;
    bool m_open = true;
};

/// The next key of a kind ("project", "user", …), from table `counter`, inside the running
/// transaction. `count` keys in a row are taken at once; the first is returned.
std::int64_t nextKey(Db &db, std::string_view kind, std::int64_t count = 1);

} // namespace kvx::server
