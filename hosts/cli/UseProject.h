#pragma once

#include "cli/Commands.h"
#include "client/Client.h"

#include <string>
#include <vector>

namespace kvx::cli {

/// The project of a command, opened where it is not; null after the error was reported, with the
/// exit code of that.
host::OpenProject *useProject(Context &context, const std::string &project, int &refusal);

/// Why unsaved edits could not be brought up to date; where a colleague's change clashes with them,
/// also what decides. The exit code.
int mergeFailed(Context &context, const QString &reason, bool clash, QJsonObject data = {});

/// Row numbers of the items named by their own numbers or as "#row"; an empty result after the
/// error was reported.
QList<int> findItems(
    Context &context, host::OpenProject &project, const std::vector<std::string> &names);

/// The user sees the project, but may not change it.
bool mayOnlyRead(const host::OpenProject &project);

} // namespace kvx::cli
