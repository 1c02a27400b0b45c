#include "store/AuditStore.h"
#include "base/Digest.h"
#include "store/Db.h"

#include <limits>

namespace kvx::server {

namespace {

std::string chainOf(
    std::string link, std::int64_t processId, std::int64_t number, Time at, const AuditEntry &entry)
{
    const auto numberText = [](const std::optional<std::int64_t> &value) {
        return value ? std::to_string(*value) : std::string("-");
    };
    for (const std::string &field :
        { std::to_string(processId), std::to_string(number), std::to_string(at),
            numberText(entry.userId), numberText(entry.sessionId), entry.address, entry.service,
            numberText(entry.projectId), entry.object, std::to_string(entry.status), entry.detail })
        link += '\n' + std::to_string(field.size()) + ':' + field;
    return sha256(link);
}

} // namespace

void addAudit(Db &db, std::int64_t processId, Time now, const AuditEntry &entry)
{
    const auto last = db.row<std::int64_t, std::string>(
        "SELECT number, chain FROM audit WHERE process_id = :process ORDER BY number DESC LIMIT 1",
        { { "process", processId } });
    const std::int64_t number = last ? std::get<0>(*last) + 1 : 1;
    const std::string chain
        = chainOf(last ? std::get<1>(*last) : std::string(), processId, number, now, entry);
    db.run("INSERT INTO audit (process_id, number, at, user_id, session_id, address, service, "
           "project_id, object, status, detail, chain) VALUES (:process, :number, :at, :user, "
           ":session, :address, :service, :project, :object, :status, :detail, :chain)",
        { { "process", processId }, { "number", number }, { "at", now }, { "user", entry.userId },
            { "session", entry.sessionId }, { "address", entry.address },
            { "service", entry.service }, { "project", entry.projectId },
            { "object", entry.object }, { "status", entry.status }, { "detail", entry.detail },
            { "chain", chain } });
}

void eachBrokenAuditRow(Db &db, const std::function<void(std::int64_t, std::int64_t)> &act)
{
    using I = std::int64_t;
    using S = std::string;
    using OptI = std::optional<I>;
    I lastProcess = 0;
    I lastNumber = 0;
    S lastChain;
    db.each<I, I, Time, OptI, OptI, S, S, OptI, S, int, S, S>(
        "SELECT process_id, number, at, user_id, session_id, address, service, project_id, object,"
        " status, detail, chain FROM audit ORDER BY process_id, number",
        {},
        [&](I process, I number, Time at, OptI user, OptI session, S address, S service,
            OptI project, S object, int status, S detail, S chain) {
            const bool first = process != lastProcess;
            const AuditEntry entry { user, session, std::move(address), std::move(service), project,
                std::move(object), status, std::move(detail) };
            // The oldest row that is left cannot be judged: the one before it may have gone by age.
            const bool known = number == 1 || !first;
            const bool missing = !first && number != lastNumber + 1;
            if (missing
                || (known && chain != chainOf(first ? S() : lastChain, process, number, at, entry)))
                act(process, number);
            lastProcess = process;
            lastNumber = number;
            lastChain = std::move(chain);
        });
}

void eachAudit(Db &db, const AuditQuery &query, const std::function<void(const AuditRow &)> &act)
{
    db.each<std::int64_t, std::int64_t, Time, std::string, std::optional<std::int64_t>, std::string,
        std::string, std::string, std::string, int, std::string, std::string>(
        "SELECT a.process_id, a.number, a.at, coalesce(u.email, ''), a.session_id, a.address, "
        "a.service, coalesce(p.guid, ''), a.object, a.status, a.detail, a.chain FROM audit a "
        "LEFT JOIN users u ON u.id = a.user_id LEFT JOIN project p ON p.id = a.project_id "
        "WHERE a.at >= :from AND a.at < :before "
        "AND (:user IS NULL OR a.user_id = :user) "
        "AND (:project IS NULL OR a.project_id = :project) "
        "AND a.service = coalesce(:service, a.service) ORDER BY a.at, a.process_id, a.number",
        { { "from", query.from.value_or(0) },
            { "before", query.before.value_or(std::numeric_limits<Time>::max()) },
            { "user", query.userId }, { "project", query.projectId },
            { "service", query.service } },
        [&act](std::int64_t process, std::int64_t number, Time at, std::string email,
            std::optional<std::int64_t> session, std::string address, std::string service,
            std::string guid, std::string object, int status, std::string detail,
            std::string chain) {
            act({ process, number, at, std::move(email), session, std::move(address),
                std::move(service), std::move(guid), std::move(object), status, std::move(detail),
                std::move(chain) });
        });
}

std::int64_t dropAuditBefore(Db &db, Time before)
{
    return db.run("DELETE FROM audit WHERE at < :before", { { "before", before } });
}

} // namespace kvx::server
