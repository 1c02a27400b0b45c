#include "services/LogLock.h"
#include "base/Config.h"
#include "services/Access.h"
#include "services/ServiceMemory.h"
#include "store/Db.h"
#include "store/LogStore.h"
#include "store/ProjectStore.h"
#include "store/UserStore.h"

#include <FailPoint.h>
#include <algorithm>
#include <limits>

namespace kvx::server {

namespace {

enum LockAnswer { Stale = 0, Mine = 1, Busy = 2 };

/// How often one waiting save may be held back for the full time: together with the client's own
/// waits it must not last much longer than those.
constexpr Time holdsOfOneSave = 6;

Reply answer(LockAnswer lock)
{
    return Reply::ok().set("Lock", static_cast<int>(lock));
}

/// True when the versions that the caller's copy knows are not the server's: its data was put back
/// to an earlier state, and others saved since.
bool knowsOtherHistory(Call &call, std::int64_t projectId)
{
    const auto version = call.request().optionalInteger(
        "KnownVersion", 0, std::numeric_limits<std::int32_t>::max());
    if (!version)
        return false;
    const auto log = LogStore(call.db()).log(projectId, *version);
    return log && log->chain != call.request().text("KnownChain", 200);
}

Reply getLogVersion(Call &call)
{
    const auto project = ProjectStore(call.db()).find(call.project().id);
    if (knowsOtherHistory(call, project->id))
        return Reply::refused(StatusCode::OtherHistory);
    return Reply::ok()
        .set("LogVersion", project->logVersion)
        .set("Chain", project->chain)
        .set("Epoch", call.environment().epoch);
}

/// What the upload would refuse. The answer is "Mine" then and no lock is taken: the client goes on
/// to its upload, hears the real reason there and reports a failed save. After any other answer it
/// would wait, or report success with nothing published.
bool maySave(Call &call, const ProjectAccess &project)
{
    return project.canWrite() && project.lockedBy.empty() && !refuseOpenElsewhere(call, project.id)
        && !isInMaintenance(call) && hasSpace(call.config());
}

Reply busy(Call &call, const Project &project)
{
    Reply reply = answer(Busy);
    if (const auto holder = findUser(call.db(), project.lockUser.value_or(0))) {
        reply.set("HolderName", holder->name)
            .set("HolderEmail", holder->email)
            .set("Since", minuteText(project.lockSince));
    }
    return reply;
}

/// Holds the request back until the lock is free or a version is published, or says who has it.
Reply wait(Call &call, std::int64_t id)
{
    LogLockPlaces &places = call.memory().lockPlaces;
    const std::int64_t session = call.caller().sessionId;
    const auto place = places.of(id, session, call.now());
    const auto project = ProjectStore(call.db()).find(id);
    const Time hold = call.config().lockHold;
    const Time patience = std::min(hold, holdsOfOneSave * hold - place.held);
    const Time leaseEnd = project->lockUntil + 1 - call.firstAsked();
    if (!call.patienceOver() && call.firstAsked() + patience > call.now())
        return Reply::held(logLockKey(id), patience, place.number, leaseEnd);
    places.keep(id, session, call.now() - call.firstAsked(), call.now());
    return busy(call, *project);
}

Reply takeLogLock(Call &call, const ProjectAccess &project, std::int64_t clientVersion)
{
    const Caller &caller = call.caller();
    LogLockPlaces &places = call.memory().lockPlaces;
    // Only then: the client synchronises and asks again without a pause.
    if (clientVersion < project.logVersion) {
        places.keep(project.id, caller.sessionId, call.now() - call.firstAsked(), call.now());
        return answer(Stale);
    }
    if (!maySave(call, project))
        return answer(Mine);
    LogStore logs(call.db());
    const Time until = call.now() + call.config().lockLease;
    if (!logs.renew(project.id, caller.sessionId, until)
        && !logs.take(project.id, caller.sessionId, caller.userId, call.now(), until))
        return wait(call, project.id);
    if (KVX_FAIL_POINT("lock/row written"))
        throw DbError(DbError::Kind::Full, "database or disk is full");
    places.leave(project.id, caller.sessionId);
    return answer(Mine);
}

// A release must reach the lock of a holder who has lost his access meanwhile, or it would stay
// with his session.
Reply logLock(Call &call)
{
    const std::string guid = call.request().guid("ProjectGUID");
    const std::int64_t version
        = call.request().integer("LogVersion", -1, std::numeric_limits<std::int32_t>::max());
    const bool release = call.request().flag("ReleaseLock");
    if (!release)
        return call.hasProject() ? takeLogLock(call, call.project(), version)
                                 : Reply::refused(StatusCode::NoSuchProject);

    const auto project = ProjectStore(call.db()).find(guid);
    const std::int64_t session = call.caller().sessionId;
    const bool held = project && LogStore(call.db()).release(project->id, session);
    if (!held && !call.hasProject())
        return Reply::refused(StatusCode::NoSuchProject);
    call.memory().lockPlaces.leave(project->id, session);
    if (held)
        call.wakeHeld(logLockKey(project->id));
    return answer(Stale);
}

} // namespace

const ServiceTable logLockServices = {
    { "getlogversion", getLogVersion, ProjectReader | NamesCaller | Light },
    { "loglock", logLock, ProjectReader | MayBeGone | NamesCaller | WritesLazily | InMaintenance },
};

} // namespace kvx::server
