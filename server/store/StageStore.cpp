#include "store/StageStore.h"
#include "store/Db.h"

namespace kvx::server {

using I = std::int64_t;

static const char *partText(StageStore::Part part)
{
    return part == StageStore::Part::Log ? "log" : "file";
}

void StageStore::put(std::int64_t projectId, Part part, const Staged &staged, Time now)
{
    m_db.run("INSERT INTO stage (project_id, part, generation, session_id, blob, md5, size, at)"
             " VALUES (:project, :part, :generation, :session, :blob, :md5, :size, :now)"
             " ON CONFLICT (project_id, part) DO UPDATE SET generation = excluded.generation,"
             " session_id = excluded.session_id, blob = excluded.blob, md5 = excluded.md5,"
             " size = excluded.size, at = excluded.at",
        { { "project", projectId }, { "part", partText(part) }, { "generation", staged.generation },
            { "session", staged.sessionId }, { "blob", staged.blob }, { "md5", staged.md5 },
            { "size", staged.size }, { "now", now } });
}

std::optional<StageStore::Staged> StageStore::get(
    std::int64_t projectId, Part part, std::int64_t generation)
{
    std::optional<Staged> found;
    m_db.each<I, I, std::string, std::string, I>(
        "SELECT generation, session_id, blob, md5, size FROM stage"
        " WHERE project_id = :project AND part = :part AND generation = :generation",
        { { "project", projectId }, { "part", partText(part) }, { "generation", generation } },
        [&found](I gen, I session, std::string blob, std::string md5, I size) {
            found = Staged { gen, session, std::move(blob), std::move(md5), size };
        });
    return found;
}

void StageStore::drop(std::int64_t projectId)
{
    m_db.run("DELETE FROM stage WHERE project_id = :project", { { "project", projectId } });
}

} // namespace kvx::server
