#include "store/ProjectHistory.h"
#include "store/Db.h"

namespace kvx::server {

using I = std::int64_t;
using T = std::string;

std::vector<PublishedVersion> projectHistory(Db &db, std::int64_t projectId)
{
    std::vector<PublishedVersion> versions;
    db.each<I, Time, T, T, I, T, T, T>(
        "SELECT l.version, l.at, u.email, l.device, l.size, l.amount, l.blob, l.chain "
        "FROM project_log l JOIN users u ON u.id = l.user_id WHERE l.project_id = :id "
        "ORDER BY l.version",
        { { "id", projectId } },
        [&versions](I version, Time at, T email, T device, I size, T amount, T digest, T chain) {
            versions.push_back({ version, at, std::move(email), std::move(device), size,
                std::move(amount), std::move(digest), std::move(chain) });
        });
    return versions;
}

ProjectSpace projectSpace(Db &db, std::int64_t projectId)
{
    ProjectSpace space;
    db.each<I, I>("SELECT count(*), coalesce(sum(size), 0) FROM project_log WHERE project_id = :id",
        { { "id", projectId } }, [&space](I count, I bytes) {
            space.logs = count;
            space.logBytes = bytes;
        });
    db.each<I>("SELECT coalesce(sum(size), 0) FROM blob WHERE sha256 IN "
               "(SELECT file_blob FROM project WHERE id = :id "
               "UNION SELECT file_blob FROM project_log WHERE project_id = :id)",
        { { "id", projectId } }, [&space](I bytes) { space.fileBytes = bytes; });
    db.each<I, I>("SELECT count(*), coalesce(sum(size), 0) FROM file "
                  "WHERE owner_kind = 'project' AND owner_id = :id",
        { { "id", projectId } }, [&space](I count, I bytes) {
            space.attachments = count;
            space.attachmentBytes = bytes;
        });
    db.each<I>("SELECT coalesce(sum(size), 0) FROM stage WHERE project_id = :id",
        { { "id", projectId } }, [&space](I bytes) { space.stagedBytes = bytes; });
    return space;
}

std::vector<UserSpace> userSpace(Db &db)
{
    std::vector<UserSpace> users;
    db.each<T, I, I>("SELECT u.email, count(*), sum(f.size) FROM file f "
                     "JOIN users u ON u.id = f.owner_id WHERE f.owner_kind = 'user' "
                     "GROUP BY u.id, u.email ORDER BY u.email",
        {}, [&users](T email, I files, I bytes) {
            users.push_back({ std::move(email), files, bytes });
        });
    return users;
}

StoreSpace storeSpace(Db &db)
{
    StoreSpace space;
    db.each<I, I>(
        "SELECT count(*), coalesce(sum(size), 0) FROM blob", {}, [&space](I blobs, I bytes) {
            space = { blobs, bytes };
        });
    return space;
}

} // namespace kvx::server
