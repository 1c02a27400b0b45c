#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::server {

class Db;

/// A group of projects of one kind. Which projects belong to it stands in their additional
/// information.
struct ProjectGroup {
    std::int64_t id = 0;
    std::string name;
    std::string kind;
    std::int64_t creatorId = 0;
};

class GroupStore {
public:
    explicit GroupStore(Db &db)
        : m_db(db)
    {
    }

    /// By name without regard to case.
    std::optional<ProjectGroup> find(std::string_view name);
    std::vector<ProjectGroup> all();
    /// Throws a unique DbError when the name is taken.
    void insert(std::string_view name, std::string_view kind, std::int64_t creatorId);
    /// Throws a unique DbError when the name is taken.
    void rename(std::int64_t id, std::string_view name);
    void remove(std::int64_t id);

    /// Living projects whose additional information may name a group, with that information: its
    /// text holds `fragment`. One row at a time, since one may have 256 KiB.
    void eachCandidate(std::string_view fragment,
        const std::function<void(std::int64_t projectId, const std::string &info)> &act);

private:
    Db &m_db;
};

} // namespace kvx::server
