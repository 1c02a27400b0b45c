#include "admin/FirstStart.h"
#include "admin/DataFolder.h"
#include "base/Config.h"
#include "base/Text.h"
#include "services/Password.h"
#include "store/Db.h"
#include "store/MetaStore.h"
#include "store/Migrations.h"
#include "store/RoleStore.h"
#include "store/SessionStore.h"
#include "store/UserStore.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace kvx::server {

namespace {

constexpr std::size_t passwordLength = 20;

void writePassword(const std::string &file, const std::string &password)
{
    const int out = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    const std::string line = password + '\n';
    const bool written = out >= 0
        && write(out, line.data(), line.size()) == static_cast<ssize_t>(line.size())
        && fsync(out) == 0;
    const int error = errno;
    if (out >= 0)
        close(out);
    if (!written)
        throw DataFolderError(file + ": " + std::strerror(error));
}

std::int64_t addFirstRoles(Db &db)
{
    RoleRights administrator;
    administrator.administrator = true;
    RoleRights chief { true, true, true, true, true, true, true, true, false };
    RoleRights estimator;
    estimator.exportProject = estimator.uploadReportSetting = estimator.readOnlyRateLibrary = true;
    RoleRights reviewer;
    reviewer.allProjectReview = true;

    const std::int64_t first = addRole(db, "Administrator", administrator);
    addRole(db, "Chief estimator", chief);
    addRole(db, "Estimator", estimator);
    addRole(db, "Reviewer", reviewer);
    raiseRolesRevision(db);
    return first;
}

} // namespace

std::optional<FirstAdministrator> prepareDatabase(
    Db &db, const Config &config, Time now, const std::string &passwordFile)
{
    migrate(db, now);
    if (metaValue(db, "epoch") && !loadUsers(db).empty())
        return std::nullopt;

    const std::string email = canonicalEmail(config.adminEmail);
    const std::string password = randomPassword(passwordLength);
    const std::string hash = hashPassword(password);
    Transaction transaction(db, Transaction::Kind::Write);
    if (!metaValue(db, "epoch")) {
        setMetaValue(db, "epoch", newUuid());
        setMetaValue(db, "epoch_since", std::to_string(now));
        setMetaValue(db, "created", std::to_string(now));
    }
    std::optional<FirstAdministrator> made;
    if (loadUsers(db).empty()) {
        const auto existing = findRole(db, "Administrator");
        const std::int64_t role = existing ? *existing : addFirstRoles(db);
        assignRole(db, role, addUser(db, now, email, "Administrator", hash));
        made = FirstAdministrator { email, password };
        if (!passwordFile.empty())
            writePassword(passwordFile, password);
    }
    transaction.commit();
    return made;
}

void settleAfterRestart(Db &db, const Config &config, Time now, Time lastSeen)
{
    Transaction transaction(db, Transaction::Kind::Write);
    dropUnheldStages(db);
    renewOpenLeases(db, lastSeen, now + config.lockLease);
    transaction.commit();
}

} // namespace kvx::server
