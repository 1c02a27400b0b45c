#include "store/Db.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>
#include <unistd.h>
#include <unordered_map>

namespace kvx::server {

struct Db::Connection {
    explicit Connection(const std::string &parameters)
        : session(soci::sqlite3, parameters)
    {
    }

    soci::session session;
    std::unordered_map<std::string, std::unique_ptr<Statement>> statements;
};

namespace {

DbError translated(const std::exception &error)
{
    const std::string text = error.what();
    const auto *refused = dynamic_cast<const soci::sqlite3_soci_error *>(&error);
    const int code = refused ? refused->result() & 0xff : 0;
    DbError::Kind kind = DbError::Kind::Other;
    if (code == SQLITE_CONSTRAINT) {
        // Only the engine's own words tell which constraint it was; a primary key reads the same.
        const bool unique = text.find("UNIQUE constraint failed") != std::string::npos;
        kind = unique ? DbError::Kind::Unique : DbError::Kind::Constraint;
    } else if (code == SQLITE_BUSY || code == SQLITE_LOCKED) {
        kind = DbError::Kind::Busy;
    } else if (code == SQLITE_FULL) {
        kind = DbError::Kind::Full;
    }
    return DbError(kind, text);
}

} // namespace

/// A prepared statement with the variables that the database layer reads and writes. Their
/// addresses are bound, hence the deques.
class Db::Statement final : public DbRow {
public:
    Statement(soci::session &session, std::string_view sql, DbParams params, const DbColumn *types,
        std::size_t count)
        : m_statement(session)
    {
        m_statement.alloc();
        for (std::size_t i = 0; i < count; ++i) {
            Slot &slot = m_columns.emplace_back();
            if (types[i] == DbColumn::Text)
                m_statement.exchange(soci::into(slot.text, slot.indicator));
            else
                m_statement.exchange(soci::into(slot.number, slot.indicator));
        }
        for (const DbParam &param : params) {
            Slot &slot = m_params.emplace_back();
            if (param.value.isText())
                m_statement.exchange(soci::use(slot.text, slot.indicator, param.name));
            else
                m_statement.exchange(soci::use(slot.number, slot.indicator, param.name));
        }
        m_statement.prepare(std::string(sql));
        m_statement.define_and_bind();
    }

    bool start(DbParams params)
    {
        auto slot = m_params.begin();
        for (const DbParam &param : params) {
            slot->text = param.value.text();
            slot->number = param.value.number();
            slot->indicator = param.value.isNull() ? soci::i_null : soci::i_ok;
            ++slot;
        }
        return m_statement.execute(true);
    }

    bool fetch() { return m_statement.fetch(); }
    std::int64_t touched() { return m_statement.get_affected_rows(); }

    bool isNull(std::size_t column) const override
    {
        return m_columns[column].indicator == soci::i_null;
    }
    std::int64_t integer(std::size_t column) const override { return checked(column).number; }
    const std::string &text(std::size_t column) const override { return checked(column).text; }

    bool busy = false;

private:
    struct Slot {
        long long number = 0;
        std::string text;
        soci::indicator indicator = soci::i_ok;
    };
    const Slot &checked(std::size_t column) const
    {
        if (isNull(column))
            throw DbError(DbError::Kind::Other, "column " + std::to_string(column) + " is null");
        return m_columns[column];
    }

    std::deque<Slot> m_columns;
    std::deque<Slot> m_params;
    soci::statement m_statement;
};

void Db::prepareEngine()
{
    sqlite_api::sqlite3_config(SQLITE_CONFIG_MULTITHREAD);
    sqlite_api::sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
}

Db::Db(const std::string &file, Mode mode)
{
    if (file.find('"') != std::string::npos)
        throw DbError(DbError::Kind::Other, "the database path must not contain a quotation mark");
    try {
        if (mode == Mode::Existing && access(file.c_str(), R_OK | W_OK) != 0)
            throw std::runtime_error(std::strerror(errno));
        m_connection = std::make_unique<Connection>("dbname=\"" + file + "\" timeout=10");
    } catch (const std::exception &error) {
        throw DbError(DbError::Kind::Other, file + ": " + error.what());
    }
    execute("PRAGMA journal_mode=WAL");
    execute("PRAGMA synchronous=FULL");
    execute("PRAGMA foreign_keys=ON");
    execute("PRAGMA trusted_schema=OFF");
    execute("PRAGMA temp_store=MEMORY");
}

Db::~Db() = default;

void Db::execute(const std::string &sql)
{
    try {
        m_connection->session << sql;
    } catch (const std::exception &error) {
        throw translated(error);
    }
}

std::int64_t Db::run(std::string_view sql, DbParams params)
{
    struct : RowReader {
        void read(const DbRow &) override { }
    } nothing;
    return select(sql, params, nullptr, 0, nothing);
}

std::int64_t Db::select(std::string_view sql, DbParams params, const DbColumn *types,
    std::size_t count, RowReader &reader)
{
    // The same text may be asked with other column or parameter types; each form is its own
    // statement.
    std::string form(sql);
    for (std::size_t i = 0; i < count; ++i)
        form += types[i] == DbColumn::Text ? 't' : 'i';
    for (const DbParam &param : params)
        form += param.value.isText() ? 'T' : 'I';

    std::unique_ptr<Statement> &kept = m_connection->statements[form];
    std::unique_ptr<Statement> nested;
    std::unique_ptr<Statement> &used = kept && kept->busy ? nested : kept;
    try {
        if (!used)
            used = std::make_unique<Statement>(m_connection->session, sql, params, types, count);
        Statement &statement = *used;
        statement.busy = true;
        for (bool more = statement.start(params); more && count > 0; more = statement.fetch())
            reader.read(statement);
        statement.busy = false;
        return statement.touched();
    } catch (const soci::soci_error &error) {
        const DbError refused = translated(error);
        used.reset(); // a half-read statement would keep its snapshot open
        throw DbError(refused);
    } catch (...) {
        used.reset();
        throw;
    }
}

Transaction::Transaction(Db &db, Kind kind)
    : m_db(db)
{
    const bool syncs = kind != Kind::WriteLazily;
    if (kind != Kind::Read && syncs != m_db.m_syncs) {
        m_db.execute(syncs ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
        m_db.m_syncs = syncs;
    }
    m_db.run(kind == Kind::Read ? "BEGIN" : "BEGIN IMMEDIATE");
    m_db.m_inTransaction = true;
}

Transaction::~Transaction()
{
    if (!m_open)
        return;
    m_db.m_inTransaction = false;
    try {
        m_db.run("ROLLBACK");
    } catch (const DbError &) {
        // Some failures (a full disk) end the transaction by themselves.
    }
}

void Transaction::commit()
{
    m_db.run("COMMIT");
    m_open = false;
    m_db.m_inTransaction = false;
}

Savepoint::Savepoint(Db &db)
    : m_db(db)
{
    m_db.run("SAVEPOINT part");
}

Savepoint::~Savepoint()
{
    if (!m_open)
        return;
    try {
        m_db.run("ROLLBACK TO part");
        m_db.run("RELEASE part");
    } catch (const DbError &) {
        // The whole transaction is gone already; its end is judged there.
    }
}

void Savepoint::keep()
{
    m_db.run("RELEASE part");
    m_open = false;
}

std::int64_t nextKey(Db &db, std::string_view kind, std::int64_t count)
{
    const auto next = db.value<std::int64_t>(
        "UPDATE counter SET next = next + :count WHERE name = :name RETURNING next",
        { { "count", count }, { "name", kind } });
    if (next)
        return *next - count;
    db.run("INSERT INTO counter (name, next) VALUES (:name, :next)",
        { { "name", kind }, { "next", 1 + count } });
    return 1;
}

} // namespace kvx::server
