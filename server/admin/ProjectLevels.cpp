#include "admin/ProjectLevels.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "admin/ProjectViews.h"
#include "base/Text.h"
#include "services/Permissions.h"
#include "store/PermissionStore.h"

namespace kvx::server {

namespace {

constexpr int lowestLevel = -1;
constexpr int highestLevel = 8; // the next one stands for rights by role

int levelFrom(const std::string &text, const std::string &given)
{
    for (int level = lowestLevel; level <= highestLevel; ++level) {
        if (text == std::to_string(level))
            return level;
    }
    throw CommandUsage("\"" + given + "\": a level must be -1 (none) to 8, not \"" + text + '"');
}

/// "ben@example.com=1,-1,1,1".
std::pair<std::string, Levels> givenLevels(const std::string &given)
{
    const std::size_t equals = given.rfind('=');
    const std::vector<std::string> parts = equals == std::string::npos
        ? std::vector<std::string>()
        : splitList(given.substr(equals + 1));
    if (parts.empty() || parts.size() > 4)
        throw CommandUsage("\"" + given + "\" must be EMAIL= and one to four levels");
    Levels levels;
    int *const places[] = { &levels.projectRw, &levels.money, &levels.addendum, &levels.report };
    for (std::size_t i = 0; i < parts.size(); ++i)
        *places[i] = levelFrom(parts[i], given);
    return { given.substr(0, equals), levels };
}

void applyChanges(AdminSession &session, const CommandArguments &arguments)
{
    AdminChange change(session);
    const Project project = session.project(arguments.text("project"));
    NewPermissions wanted { project.id, project.guid, project.kind, project.creatorId, {} };
    for (const StoredLevels &row : PermissionStore(change.db()).of(project.id))
        wanted.rows[row.userId] = row.levels;
    std::string detail;
    for (const std::string &email : arguments.texts("--remove")) {
        const User user = session.user(email);
        if (wanted.rows.erase(user.id) == 0)
            throw CommandRefused(user.email + " has no permission in \"" + project.name + '"');
        if (user.id == project.creatorId)
            wanted.rows[user.id] = {}; // left out, it would stay as it is
        detail += (detail.empty() ? "" : " ") + user.email + "=none";
    }
    for (const std::string &given : arguments.texts("--set")) {
        const auto [email, levels] = givenLevels(given);
        wanted.rows[session.user(email).id] = levels;
        detail += (detail.empty() ? "" : " ") + given;
    }
    replacePermissions(change.call(), std::move(wanted));
    change.audit(project.guid, detail, project.id);
    change.commit();
}

} // namespace

int editPermissions(AdminSession &session, const CommandArguments &arguments)
{
    if (arguments.has("--set") || arguments.has("--remove"))
        applyChanges(session, arguments);
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    const Project project = session.anyProject(arguments.text("project"));
    return session.done("users", permissionsOf(session.db(), project.id));
}

} // namespace kvx::server
