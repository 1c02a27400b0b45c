#pragma once

#include <KVXExport.h>
#include <KVXOCRSDK/KVXOCRParam.h>
#include <QObject>

/// Client of the server's recognition service. Signals may come from the client's own thread.
class KVXOCRSDK_API KVXOCRClient : public QObject {
    Q_OBJECT
public:
    ~KVXOCRClient() override = default;

    virtual void setUrl(const QString &url) = 0;
    /// Seconds after which waitingTime is repeated while a job is queued; 0: whenever it changes.
    virtual void setWaitingInterval(int seconds) = 0;
    /// Starts the jobs and takes ownership of them, also when it refuses. False: one is running
    /// already, or the list holds a null job.
    virtual bool start(QList<KVXOCRParam *> jobs) = 0;
    /// Ends the running jobs. True when none is left running.
    virtual bool stop() = 0;

    /// Owned by the caller.
    static KVXOCRClient *create();

Q_SIGNALS:
    void pageOcred(const QString &file, int page, const QString &text);
    void finished(const QString &file);
    void error(const QString &file, int code, const QString &message);
    void waitingTime(int seconds);
};
