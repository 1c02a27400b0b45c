#pragma once

#include "OcrRun.h"

#include <KVXOCRSDK/KVXOCRClient.h>
#include <memory>
#include <mutex>

namespace kvx {

/// The client: at most one list of jobs at a time. What its run tells is posted to this object's
/// thread and emitted there.
class OcrClient : public KVXOCRClient {
    Q_OBJECT
public:
    OcrClient();
    ~OcrClient() override;

    void setUrl(const QString &url) override { m_url = url; }
    void setWaitingInterval(int seconds) override { m_waitingInterval = seconds; }
    bool start(QList<KVXOCRParam *> jobs) override;
    bool stop() override;

private:
    /// Where a run posts to for as long as the client lives.
    struct Address {
        std::mutex mutex;
        OcrClient *client;
    };
    OcrRun::Listener listener(const OcrRun::StopFlag &stopped) const;

    QString m_url;
    int m_waitingInterval = 0;
    std::shared_ptr<Address> m_address;
    std::shared_ptr<OcrRun> m_run;
};

} // namespace kvx
