#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// A table that the users share as a whole.
struct SharedTable {
    std::string name;
    std::string writeRight; ///< key of the role permission that may write; empty: the usual one
    std::int64_t revision = 0;
    std::string blob; ///< its data as compact JSON; empty: never written
    std::optional<std::int64_t> userId; ///< who wrote it last; none: a command
    Time at = 0; ///< wall clock
};

/// Names are told apart by case, as clients do.
class TableStore {
public:
    explicit TableStore(Db &db)
        : m_db(db)
    {
    }

    std::optional<SharedTable> find(const std::string &name);
    std::vector<SharedTable> all();
    /// An empty one; throws DbError (unique) when the name is taken.
    void add(const SharedTable &table);
    void setWriteRight(const std::string &name, const std::string &right);
    /// The next revision; of those before, the last 19 are kept. Its number.
    std::int64_t write(const std::string &name, const std::string &blob,
        std::optional<std::int64_t> userId, Time now);

private:
    Db &m_db;
};

} // namespace kvx::server
