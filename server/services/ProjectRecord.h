#pragma once

#include "base/Clock.h"
#include "store/PermissionStore.h"
#include "store/ProjectStore.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kvx::server {

class Db;
struct Caller;

/// A project's record as JSON text, but for the entries of users who see it by role.
struct RenderedRecord {
    std::int64_t revision = 0;
    std::string head; ///< up to the users with a stored level, without the closing brackets
    std::vector<std::int64_t> listed; ///< the users in it
    /// Stored entries whose "ProjectRW" is -1: a by-role entry of the same user stands in their
    /// place.
    std::vector<std::pair<std::int64_t, std::string>> hidden;
};

/// Records rendered once for each (project, revision). Only for readers of a snapshot; inside a
/// change the revision does not stand for the contents yet. Any thread.
class RecordCache {
public:
    using Record = std::shared_ptr<const RenderedRecord>;
    Record find(std::int64_t projectId, std::int64_t revision) const;
    void keep(std::int64_t projectId, Record record);

private:
    mutable std::mutex m_mutex;
    std::unordered_map<std::int64_t, Record> m_records;
};

RenderedRecord renderRecord(
    const ProjectStore::Shown &shown, const std::vector<StoredLevels> &users);

/// The record as a reply carries it: the stored users and, where he sees the project by role, the
/// caller.
void appendRecord(
    std::string &json, const RenderedRecord &record, const std::string &kind, const Caller &caller);

/// The record as "New" and "PermissionChanged" carry it, with "Command" first where one is given:
/// the stored users and everybody who sees the project by role (over 4,000 of these: who has logged
/// in within a day). Nothing when the project is removed or gone.
std::optional<std::string> announcedRecord(
    Db &db, Time now, std::int64_t projectId, const std::string &command);

/// {"Command": …, …}: the record without users and additional information, as the other project
/// notifications carry it. Also for a project that has just been removed.
std::string shortRecord(Db &db, std::int64_t projectId, const std::string &command);

} // namespace kvx::server
