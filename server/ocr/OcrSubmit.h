#pragma once

#include "services/Reply.h"
#include "store/OcrStore.h"

#include <optional>

namespace kvx::server {

/// Before the document is read: form of the request, rights, space and places in the queue.
Reply beforeOcrSubmit(Call &call);
/// The document has arrived: it is looked into, in a process of its own, and queued.
Reply submitOcr(Call &call);

/// Seconds until the job begins.
std::int64_t ocrWaitingTime(Call &call, const OcrStore::Job &job);

} // namespace kvx::server
