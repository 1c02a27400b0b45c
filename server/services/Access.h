#pragma once

#include "services/Call.h"
#include "services/Reply.h"

#include <optional>
#include <string>

namespace kvx::server {

/// The five kinds and those of `projects.kinds`.
bool isProjectKind(const Config &config, const std::string &kind);

bool isAdministrator(const Call &call);

/// What belongs to a user is his and an administrator's to change.
bool mayChange(const Call &call, std::int64_t ownerId);

/// Whether the caller's role lets him create projects, and groups, of a kind.
bool mayCreate(const Call &call, const std::string &kind);

/// The level of any user in a living project: the higher of stored and by role; -1 is none.
int levelOf(Db &db, std::int64_t projectId, const std::string &kind, std::int64_t userId);

/// "OpenElsewhere" when the caller has the project open in another present session on another
/// device: one person must not edit the same items on two machines.
std::optional<Reply> refuseOpenElsewhere(Call &call, std::int64_t projectId);

/// Changes are switched off.
bool isInMaintenance(Call &call);

/// Free space above `disk.reserve`.
bool hasSpace(const Config &config);

/// "CheckOut" or "CheckIn" of a module's items, in the caller's name.
void announceItems(Call &call, std::int64_t projectId, const std::string &guid,
    const std::string &command, std::int64_t module);

/// "New" or "PermissionChanged": the record with its users, as it is when the message is sent.
/// `alsoTo`: e-mails of who lost the project by this change.
void announceWholeRecord(Call &call, std::int64_t projectId, const std::string &command,
    std::vector<std::string> alsoTo = {});

/// A project-list notification with the short record.
void announceRecord(Call &call, std::int64_t projectId, const std::string &command);

/// "UpdateAddionalInfo".
void announceInfo(
    Call &call, std::int64_t projectId, const std::string &guid, const std::string &info);

} // namespace kvx::server
