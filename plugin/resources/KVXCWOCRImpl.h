#pragma once

#include <KVXCollaboration/KVXCWOCR.h>
#include <memory>

class KVXOCRClient;

/// Hands recognition jobs to the host's OCR client and relays what it tells, unchanged. The client
/// talks to the server that was set when this object was made; a later change does not reach it.
class KVXCWOCRImpl : public KVXCWOCR {
    Q_OBJECT
public:
    KVXCWOCRImpl();
    ~KVXCWOCRImpl() override;

    bool recognize(QList<KVXCWOCRParams *> params) override;
    bool stop() override;

private:
    const std::unique_ptr<KVXOCRClient> m_client;
};
