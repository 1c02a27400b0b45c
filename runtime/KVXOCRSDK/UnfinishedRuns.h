#pragma once

#include <memory>

namespace kvx {

class OcrRun;

/// Stopped runs that are still caught in an exchange: they end by themselves, or with the process,
/// which then breaks the exchange off. Any thread.
namespace UnfinishedRuns {

void take(std::shared_ptr<OcrRun> run);

} // namespace UnfinishedRuns

} // namespace kvx
