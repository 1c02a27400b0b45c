#pragma once

#include "cli/Output.h"

namespace kvx::cli {

/// The end of a command that the server refused with that status and sentence (empty: the status
/// tells). Status 0: it could not be asked.
int refused(Output &output, int code, const QString &sentence = {}, QJsonObject data = {});

} // namespace kvx::cli
