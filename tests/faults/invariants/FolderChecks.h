#pragma once

#include "History.h"
#include "RunCheck.h"

namespace kvx::test {

/// Temporary files that nobody needs any more, and changes outside the folders of the run.
void checkFolders(const RunTraces &traces, const QVector<Event> &events, const Report &report);

} // namespace kvx::test
