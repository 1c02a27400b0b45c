#include "cli/Refusal.h"

#include <KVXCollaboration/KVXErrorCode.h>
#include <KVXNetwork/KVXNetwork.h>

namespace kvx::cli {

int refused(Output &output, int code, const QString &sentence, QJsonObject data)
{
    const QString transport = KVXNetwork::getInstance()->lastError();
    if (code == KVXFailed && !transport.isEmpty())
        return output.failed(Unreachable, transport, data);
    data.insert(QStringLiteral("code"), code);
    return output.failed(Refused,
        sentence.isEmpty() ? ErrorCodeToString(static_cast<KVXErrorCode>(code)) : sentence, data);
}

} // namespace kvx::cli
