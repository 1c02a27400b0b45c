#pragma once

#include <KVXExport.h>
#include <KVXOCRSDK/KVXOCRParam.h>
#include <QObject>

/// Client of the server's recognition service. Works the jobs off one after the other on a thread
/// of its own, over the transport's session (KVXNetwork); all signals come from the event loop of
/// the thread that this object lives in.
///
/// A job ends with `finished`, or with an `error` of another code than 683. An error 683 is one
/// page's; the job goes on. After stop() no signal comes. The order of the virtual operations is
/// binding.
class KVXOCRSDK_API KVXOCRClient : public QObject {
    Q_OBJECT
public:
    /// Ends what runs, as stop() does.
    ~KVXOCRClient() override = default;

    /// Counts for the next start.
    virtual void setUrl(const QString &url) = 0;
    /// Seconds after which waitingTime is repeated while a job is queued; 0: whenever it changes.
    virtual void setWaitingInterval(int seconds) = 0;
    /// Starts the jobs and takes ownership of them, also when it refuses. False: one is running
    /// already, the list holds a null job, or the URL names no server.
    virtual bool start(QList<KVXOCRParam *> jobs) = 0;
    /// Ends the running jobs, on the server too. Takes a second at most: true when none is left
    /// running; otherwise the rest (an upload that cannot be interrupted) ends by itself, unheard.
    virtual bool stop() = 0;

    /// Owned by the caller.
    static KVXOCRClient *create();

Q_SIGNALS:
    /// A page, counted from 0, in order of completion. The text is what the export type says; of a
    /// searchable PDF the plain text.
    void pageOcred(const QString &file, int page, const QString &text);
    /// A searchable PDF then lies at KVXOCRParam::searchablePdfPath(file).
    void finished(const QString &file);
    /// A status code of the server, 0 where it could not be asked; a sentence for the user.
    void error(const QString &file, int code, const QString &message);
    /// Seconds until the job begins, as the server estimates; 0 when it has begun.
    void waitingTime(int seconds);
    /// Bytes of the document sent so far and in all.
    void uploadProgress(const QString &file, qint64 done, qint64 total);
};
