#include "admin/SessionCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/JsonText.h"
#include "store/SessionList.h"
#include "store/SessionStore.h"

#include <algorithm>

namespace kvx::server {

namespace {

const char *stateOf(AdminSession &session, const ListedSession &listed)
{
    if (!isSessionLive(
            session.config(), session.now(), listed.lastSeen, listed.ends, listed.saveLocks > 0))
        return "over";
    return isSessionPresent(session.config(), session.now(), listed.lastSeen) ? "present" : "away";
}

int listAllSessions(AdminSession &session, const CommandArguments &arguments)
{
    std::optional<std::int64_t> user;
    if (arguments.has("--user"))
        user = session.user(arguments.text("--user")).id;
    return listSessionsOf(session, user);
}

/// The sessions that the arguments name; throws CommandRefused for one that is not there.
std::vector<ListedSession> namedSessions(AdminSession &session, const CommandArguments &arguments)
{
    if (arguments.has("--user"))
        return listSessions(session.db(), session.user(arguments.text("--user")).id);
    std::vector<ListedSession> named;
    const std::vector<ListedSession> all = listSessions(session.db());
    for (const std::int64_t id : arguments.numbers("session")) {
        const auto found = std::find_if(
            all.begin(), all.end(), [id](const ListedSession &one) { return one.id == id; });
        if (found == all.end())
            throw CommandRefused("there is no session " + std::to_string(id));
        named.push_back(*found);
    }
    return named;
}

int endSessions(AdminSession &session, const CommandArguments &arguments)
{
    if (arguments.has("--user") == arguments.has("session"))
        throw CommandUsage("session end takes the numbers of sessions, or --user");
    AdminChange change(session);
    std::string ids;
    std::string sentence;
    std::string unlocked;
    for (const ListedSession &listed : namedSessions(session, arguments)) {
        for (const std::int64_t id : endSession(change.db(), listed.id).unlockedProjects)
            unlocked += (unlocked.empty() ? "" : ",")
                + jsonText(ProjectStore(change.db()).find(id)->guid);
        change.audit(listed.email, "session " + std::to_string(listed.id));
        ids += (ids.empty() ? "" : ",") + std::to_string(listed.id);
        sentence += (sentence.empty() ? "" : "\n") + std::string("Session ")
            + std::to_string(listed.id) + " of " + listed.email + " has ended.";
    }
    change.commit();
    return session.done(sentence.empty() ? "There was no session." : sentence,
        ",\"ended\":[" + ids + "],\"unlocked\":[" + unlocked + ']');
}

} // namespace

int listSessionsOf(AdminSession &session, const std::optional<std::int64_t> &userId)
{
    Listing listing({ { "id", "Session" }, { "email", "User" }, { "state", "State" },
        { "device", "Device" }, { "address", "Address" }, { "product", "Product" },
        { "version", "Version" }, { "created", "Since" }, { "lastSeen", "Last seen" },
        { "openProjects", "Open" }, { "saveLocks", "Save locks" } });
    for (const ListedSession &listed : listSessions(session.db(), userId)) {
        listing.add({ listed.id, listed.email, stateOf(session, listed), listed.device,
            listed.address, listed.product, listed.appVersion, Cell::time(listed.created),
            Cell::time(listed.lastSeen), listed.openProjects, listed.saveLocks });
    }
    return session.done("sessions", listing);
}

const AdminCommandTable sessionCommands = {
    { "session", "list", "list the sessions", { { "--user", "of this e-mail only" } },
        listAllSessions },
    { "session", "end", "end sessions, which frees their locks and open projects",
        { { "session", "numbers as listed", CommandOption::Numbers, CommandOption::Optional },
            { "--user", "all sessions of this e-mail" } },
        endSessions },
};

} // namespace kvx::server
