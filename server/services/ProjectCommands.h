#pragma once

#include "services/ServiceTable.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::server {

struct ProjectAccess;

/// Why the project cannot be removed now: somebody present has it open, or another user has locked
/// it.
std::optional<Reply> refuseRemoval(Call &call, const ProjectAccess &project);

/// Moves the project to the trash, with everything that was held in it freed, and tells the others.
/// `removedBy` is nobody for a command of the administration.
void removeProject(
    Call &call, std::int64_t projectId, const std::optional<std::int64_t> &removedBy);

/// What removes or changes a project's record.
extern const ServiceTable projectCommandServices;

} // namespace kvx::server
