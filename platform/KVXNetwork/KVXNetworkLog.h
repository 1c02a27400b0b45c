#pragma once

#include <KVXExport.h>
#include <QString>

/// Log of the transport and the broker connection. Callable from any thread; drops the text
/// while the host has not set up its log.
namespace KVXNetworkLog {

KVXNETWORK_API void logInfo(const QString &text);
KVXNETWORK_API void logError(const QString &text);

} // namespace KVXNetworkLog
