#pragma once

#include <KVXCollaboration/KVXTemplateInfo.h>
#include <KVXExport.h>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

/// Report templates shared through the server. Host thread. The order of the virtual operations
/// is binding.
class KVXCOLLABORATION_API KVXReportTemplateMgr : public QObject {
    Q_OBJECT
public:
    explicit KVXReportTemplateMgr(QObject *parent = nullptr)
        : QObject(parent)
    {
    }
    ~KVXReportTemplateMgr() override = default;

    /// Fills an empty author with the current user; on success also identity, digest and dates.
    virtual bool uploadTemplate(KVXTemplateInfo &info, const QJsonObject &content) = 0;
    /// A failure leaves content empty.
    virtual bool downloadTemplate(const QString &templateID, QJsonObject &content) = 0;
    virtual bool queryTemplates(QList<KVXTemplateInfo> &list) = 0;
    virtual bool deleteTemplates(const QStringList &templateIDs) = 0;
    virtual bool deleteTemplate(const QString &templateID) = 0;
    virtual bool renameTemplate(const QString &templateID, const QString &name) = 0;
    /// True: the question was asked; the answer is in exists.
    virtual bool templateExist(const QString &name, bool &exists, KVXTemplateInfo &info) = 0;
    virtual bool templateExistByID(const QString &templateID, bool &exists, KVXTemplateInfo &info)
        = 0;

    /// Of the last operation; 0 and empty after a success.
    int errorCode() const { return m_errorCode; }
    const QString &errorText() const { return m_errorText; }
    void clearErrorInfo()
    {
        m_errorCode = 0;
        m_errorText.clear();
    }

Q_SIGNALS:
    void templateInfoChanged(QList<KVXTemplateInfo> &infos);

protected:
    int m_errorCode = 0;
    QString m_errorText;
};
