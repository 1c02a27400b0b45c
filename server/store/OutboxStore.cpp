#include "store/OutboxStore.h"
#include "store/Db.h"

namespace kvx::server {

void addAnnouncement(Db &db, Time now, const Announcement &announcement)
{
    std::string topic = announcement.topic;
    std::int64_t seq = 0;
    if (announcement.projectId) {
        topic = std::to_string(*announcement.projectId);
        const auto revision = db.value<std::int64_t>(
            "UPDATE project SET revision = revision + 1 WHERE id = :id RETURNING revision",
            { { "id", *announcement.projectId } });
        if (!revision)
            throw DbError(
                DbError::Kind::Other, "an announcement names a project that does not exist");
        seq = *revision;
    } else {
        seq = nextKey(db, "seq." + topic);
    }
    std::string alsoTo;
    for (const std::string &email : announcement.alsoTo)
        alsoTo += (alsoTo.empty() ? "" : ";") + email;
    db.run("INSERT INTO outbox (id, topic_key, seq, type, command, sender, payload, project_id, "
           "also_to, at) VALUES (:id, :topic, :seq, :type, :command, :sender, :payload, :project, "
           ":also, :at)",
        { { "id", nextKey(db, "outbox") }, { "topic", topic }, { "seq", seq },
            { "type", announcement.type }, { "command", announcement.command },
            { "sender", announcement.sender }, { "payload", announcement.content },
            { "project", announcement.projectId }, { "also", alsoTo }, { "at", now } });
}

std::vector<OutboxRow> unsentRows(Db &db, std::int64_t after, int maximum)
{
    std::vector<OutboxRow> rows;
    db.each<std::int64_t, std::string, std::int64_t, std::string, std::string, std::string,
        std::string, std::optional<std::int64_t>, Time, int, std::string>(
        "SELECT id, topic_key, seq, type, command, sender, payload, project_id, at, attempts, "
        "also_to "
        "FROM outbox WHERE sent_at IS NULL AND id > :after ORDER BY id LIMIT :maximum",
        { { "after", after }, { "maximum", maximum } },
        [&rows](std::int64_t id, std::string topic, std::int64_t seq, std::string type,
            std::string command, std::string sender, std::string content,
            std::optional<std::int64_t> project, Time at, int attempts, std::string alsoTo) {
            rows.push_back({ id, std::move(topic), seq, std::move(type), std::move(command),
                std::move(sender), std::move(content), project, at, attempts, std::move(alsoTo) });
        });
    return rows;
}

std::int64_t lastOutboxRow(Db &db)
{
    return *db.value<std::int64_t>("SELECT coalesce(max(id), 0) FROM outbox");
}

void markSent(Db &db, std::int64_t id, std::optional<std::int64_t> number, Time now)
{
    db.run(
        "UPDATE outbox SET sent_seq = :seq, sent_at = :now, attempts = attempts + 1 WHERE id = :id",
        { { "seq", number }, { "now", now }, { "id", id } });
}

std::int64_t dropSentRows(Db &db, Time before)
{
    return db.run("DELETE FROM outbox WHERE sent_at IS NOT NULL AND sent_at < :before",
        { { "before", before } });
}

} // namespace kvx::server
