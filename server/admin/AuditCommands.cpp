#include "admin/AuditCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "store/AuditStore.h"

#include <iostream>

namespace kvx::server {

namespace {

AuditQuery queryOf(AdminSession &session, const CommandArguments &arguments)
{
    AuditQuery query;
    if (arguments.has("--from"))
        query.from = arguments.day("--from");
    if (arguments.has("--to"))
        query.before = dayAfter(arguments.day("--to"));
    if (query.from && query.before && *query.from >= *query.before)
        throw CommandUsage("--from must not be later than --to");
    if (arguments.has("--user"))
        query.userId = session.user(arguments.text("--user")).id;
    if (arguments.has("--project"))
        query.projectId = session.anyProject(arguments.text("--project")).id;
    if (arguments.has("--service"))
        query.service = arguments.text("--service");
    return query;
}

Listing entryOf(const AuditRow &row)
{
    Listing entry({ { "at", "" }, { "email", "" }, { "address", "" }, { "session", "" },
        { "service", "" }, { "project", "" }, { "object", "" }, { "status", "" }, { "detail", "" },
        { "process", "" }, { "number", "" }, { "chain", "" } });
    if (row.number > 0)
        entry.add({ Cell::time(row.at), row.email, row.address,
            row.sessionId ? Cell(*row.sessionId) : Cell(""), row.service, row.projectGuid,
            row.object, row.status, row.detail, row.processId, row.number, row.chain });
    return entry;
}

/// Row by row: the log may be longer than what fits into memory.
int exportAudit(AdminSession &session, const CommandArguments &arguments)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    const AuditQuery query = queryOf(session, arguments);
    bool first = true;
    std::cout << (session.json() ? "{\"ok\":true,\"entries\":[" : entryOf({}).csv() + '\n');
    eachAudit(session.db(), query, [&](const AuditRow &row) {
        const Listing entry = entryOf(row);
        if (session.json()) {
            std::cout << (first ? "" : ",") << entry.jsonOf(0);
        } else {
            const std::string csv = entry.csv();
            std::cout << csv.substr(csv.find('\n') + 1) << '\n';
        }
        first = false;
    });
    if (session.json())
        std::cout << "]}\n";
    return std::cout.flush() ? 0 : throw DbError(DbError::Kind::Other, "the output ends early");
}

} // namespace

const AdminCommandTable auditCommands = {
    { "audit", "export", "print the log of changes as CSV, or with --json as JSON",
        { { "--from", "first day, as in 2026-11-01" }, { "--to", "last day" },
            { "--user", "of this e-mail only" }, { "--project", "of this project only" },
            { "--service", "of this service or command only" } },
        exportAudit },
};

} // namespace kvx::server
