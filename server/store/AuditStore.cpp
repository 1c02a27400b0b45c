#include "store/AuditStore.h"
#include "base/Digest.h"
#include "store/Db.h"

namespace kvx::server {

void addAudit(Db &db, std::int64_t processId, Time now, const AuditEntry &entry)
{
    const auto last = db.row<std::int64_t, std::string>(
        "SELECT number, chain FROM audit WHERE process_id = :process ORDER BY number DESC LIMIT 1",
        { { "process", processId } });
    const std::int64_t number = last ? std::get<0>(*last) + 1 : 1;
    const auto numberText = [](const std::optional<std::int64_t> &value) {
        return value ? std::to_string(*value) : std::string("-");
    };
    std::string link = last ? std::get<1>(*last) : std::string();
    for (const std::string &field :
        { std::to_string(processId), std::to_string(number), std::to_string(now),
            numberText(entry.userId), numberText(entry.sessionId), entry.address, entry.service,
            numberText(entry.projectId), entry.object, std::to_string(entry.status), entry.detail })
        link += '\n' + std::to_string(field.size()) + ':' + field;
    db.run("INSERT INTO audit (process_id, number, at, user_id, session_id, address, service, "
           "project_id, object, status, detail, chain) VALUES (:process, :number, :at, :user, "
           ":session, :address, :service, :project, :object, :status, :detail, :chain)",
        { { "process", processId }, { "number", number }, { "at", now }, { "user", entry.userId },
            { "session", entry.sessionId }, { "address", entry.address },
            { "service", entry.service }, { "project", entry.projectId },
            { "object", entry.object }, { "status", entry.status }, { "detail", entry.detail },
            { "chain", sha256(link) } });
}

std::int64_t dropAuditBefore(Db &db, Time before)
{
    return db.run("DELETE FROM audit WHERE at < :before", { { "before", before } });
}

} // namespace kvx::server
