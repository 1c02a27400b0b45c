#pragma once

#include "services/Call.h"
#include "services/Reply.h"

namespace kvx::server {

/// Whether the upload would be taken, before its bytes are sent.
Reply beforeUpload(Call &call);

/// Takes the received file: checks its digest and, of a change log, its archive; puts it into the
/// store; then, with everything judged again, makes the rows that name it.
Reply receiveUpload(Call &call);

} // namespace kvx::server
