#include "base/Config.h"
#include "base/Text.h"
#include "services/Access.h"
#include "services/Dispatcher.h"
#include "services/FileNames.h"
#include "services/RateLimiter.h"
#include "store/Db.h"
#include "store/MetaStore.h"

// The checks that stand before every handler: who asks, whether he may, whether now.

namespace kvx::server {

namespace {

bool asksForLog(const Request &request)
{
    const Json *name = request.find("FileName");
    if (request.service() != "download" || !name || !name->IsString())
        return false;
    const auto file = parseFileName({ name->GetString(), name->GetStringLength() });
    return file && file->kind == FileName::Kind::ChangeLog;
}

/// What the caller's role alone decides.
bool mayCallByRole(ServiceRule rules, const Call &call)
{
    if (isAdministrator(call))
        return true;
    return !hasRule(rules, Administrator) && (!hasRule(rules, NeedsRole) || call.caller().hasRole)
        && (!hasRule(rules, UploadsTemplates) || call.caller().rights.uploadReportSetting);
}

/// The e-mail under that key, when there is one; throws BadRequest when it must be there.
std::optional<std::string> statedEmail(const Request &request, const char *key, bool required)
{
    if (!required && !request.has(key))
        return std::nullopt;
    return canonicalEmail(request.text(key, 1000));
}

} // namespace

std::optional<Reply> Dispatcher::admit(Db &db, Exchange &exchange, Call &call, bool &touchDue)
{
    const ServiceRule rules = exchange.rules;
    if (!exchange.token.empty()) {
        if (auto refusal = admitSession(db, exchange, call, touchDue))
            return refusal;
    }
    if (hasRule(rules, NeedsUser)) {
        if (!call.m_caller)
            return Reply::refused(StatusCode::NotLoggedIn);
        if (auto refusal = admitIdentity(rules, call))
            return refusal;
        if (!mayCallByRole(rules, call))
            return Reply::refused(StatusCode::NotAllowed);
    }
    if (hasRule(rules, Writes) && !hasRule(rules, InMaintenance)
        && metaValue(db, "read_only") == "1")
        return Reply::refused(StatusCode::ReadOnly);
    if (hasRule(rules, CreatesKind)) {
        if (auto refusal = admitToCreate(call))
            return refusal;
    }
    if (hasRule(rules, ProjectReader))
        return admitToProject(rules, call);
    return std::nullopt;
}

std::optional<Reply> Dispatcher::admitSession(
    Db &db, Exchange &exchange, Call &call, bool &touchDue)
{
    const Config &config = m_environment.config;
    const auto session = findSession(db, config, call.now(), exchange.token);
    if (!session)
        return std::nullopt;

    const ServiceRule rules = exchange.rules;
    if (!exchange.counted && !isWithinRates(session->id, rules, call))
        return Reply::refused(StatusCode::Busy).setHttpStatus(429);
    exchange.counted = true;

    Caller caller { session->userId, session->email, session->name, session->id, session->device,
        false, {} };
    if (const auto role = firstRoleOf(db, session->userId)) {
        caller.hasRole = true;
        caller.rights = role->rights;
    }
    call.m_caller = std::move(caller);
    exchange.userEmail = session->email;
    exchange.sessionId = session->id;

    touchDue = isTouchDue(config, call.now(), *session);
    return std::nullopt;
}

bool Dispatcher::isWithinRates(std::int64_t sessionId, ServiceRule rules, const Call &call)
{
    const Time now = call.now();
    return (asksForLog(call.request()) || m_limiter->admit(sessionId, RateLimiter::requests, now))
        && (!hasRule(rules, NameQuestion)
            || m_limiter->admit(-sessionId, RateLimiter::nameQuestions, now));
}

std::optional<Reply> Dispatcher::admitIdentity(ServiceRule rules, Call &call)
{
    if (hasRule(rules, NamesOwnAccount)) {
        const bool own = statedEmail(call.request(), "Email", true) == call.caller().email;
        return own || isAdministrator(call) ? std::nullopt
                                            : std::optional(Reply::refused(StatusCode::NotAllowed));
    }
    // A creator's e-mail also stands in records that are sent as they were received.
    const bool namesCreator = hasRule(rules, NamesCreator);
    for (const auto &[key, rule] : { std::pair("Email", NamesCaller), { "email", NamesCallerLower },
             { namesCreator ? "CreatorEmail" : "Email", NamesCreator } }) {
        const auto email = statedEmail(call.request(), key, hasRule(rules, rule));
        if (email && *email != call.m_caller->email)
            return Reply::refused(StatusCode::WrongIdentity);
    }
    return std::nullopt;
}

std::optional<Reply> Dispatcher::admitToCreate(Call &call)
{
    const std::string kind = call.request().text("Type", 100);
    if (!isProjectKind(call.config(), kind))
        return Reply::refused(StatusCode::UnknownKind, { kind });
    if (!mayCreate(call, kind))
        return Reply::refused(StatusCode::NotAllowed);
    return std::nullopt;
}

std::optional<Reply> Dispatcher::admitToProject(ServiceRule rules, Call &call)
{
    const Request &request = call.request();
    const bool amends = hasRule(rules, AmendsProject);
    const bool between = hasRule(rules, BetweenProjects);
    const auto found = between ? call.findProject(request.guid("newProjectGuid"))
        : amends               ? call.findProject(request.text("AddendumProjectGUID"))
                               : call.findProject(request.guid("ProjectGUID"));
    const bool sourceMissing = between && !call.findProject(request.guid("oldProjectGuid"));
    if (!found || sourceMissing) {
        return hasRule(rules, MayBeGone) ? std::nullopt
                                         : std::optional(Reply::refused(StatusCode::NoSuchProject));
    }
    const ProjectAccess &project = *found;
    if ((hasRule(rules, ProjectWriter) && !project.canWrite())
        || (hasRule(rules, ProjectOwner) && !project.owner) || (amends && project.addendum == -1))
        return Reply::refused(StatusCode::NotAllowed);
    if (hasRule(rules, Unlocked) && !project.lockedBy.empty())
        return Reply::refused(StatusCode::ProjectLocked, { project.lockedBy });
    call.m_project = found;
    return std::nullopt;
}

} // namespace kvx::server
