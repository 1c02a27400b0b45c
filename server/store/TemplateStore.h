#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::server {

class Db;

/// A shared report template, as its newest version stands.
struct Template {
    std::string id; ///< UUID
    std::string name;
    std::int64_t type = 0; ///< the application's
    std::string author; ///< as sent, for display
    std::string authorEmail; ///< as sent, for display
    std::int64_t ownerId = 0; ///< the user who uploaded it
    std::string projectVersion; ///< of the application that made it
    std::int64_t version = 1;
    std::string blob;
    std::string md5; ///< of the bytes
    Time created = 0; ///< wall clock
    Time modified = 0; ///< wall clock
};

/// Names are unique among living templates, without regard to case.
class TemplateStore {
public:
    explicit TemplateStore(Db &db)
        : m_db(db)
    {
    }

    std::optional<Template> find(const std::string &id);
    std::optional<Template> findByName(std::string_view name);
    /// A template of that ID was there and was deleted.
    bool wasDeleted(const std::string &id);
    /// The living ones, by name.
    std::vector<Template> all();

    /// A new template, or the next version of the one with that ID; the versions before the last
    /// ten go. Throws DbError (unique) when the name is taken.
    void add(const Template &added);
    void addVersion(const Template &changed);
    /// Throws DbError (unique) when the name is taken.
    void rename(const std::string &id, std::string_view name, Time now);
    void remove(const std::string &id, Time now);

private:
    void addBytes(const Template &of);

    Db &m_db;
};

} // namespace kvx::server
