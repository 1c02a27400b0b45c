#pragma once

#include <KVXCollaboration/KVXCWOCRParams.h>
#include <KVXExport.h>
#include <QList>
#include <QObject>
#include <QString>

/// Recognition of scanned pages. The order of the virtual operations is binding.
class KVXCOLLABORATION_API KVXCWOCR : public QObject {
    Q_OBJECT
public:
    ~KVXCWOCR() override = default;

    /// Takes ownership of the elements and frees them, whatever the outcome.
    virtual bool recognize(QList<KVXCWOCRParams *> params) = 0;
    virtual bool stop() = 0;

Q_SIGNALS:
    void pageOcred(const QString &file, int page, const QString &text);
    void finished(const QString &file);
    void error(const QString &file, int code, const QString &message);
    /// Seconds until the job begins.
    void remainTime(int seconds);
};
