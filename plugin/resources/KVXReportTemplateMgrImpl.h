#pragma once

#include <KVXCollaboration/KVXReportTemplateMgr.h>

class ServiceReply;

/// Report templates on the server; nothing is kept here but the last refusal. Host thread.
/// An operation succeeds when the exchange was carried and "statuscode" is 1. Without a server it
/// returns false, sends nothing and leaves no error.
class KVXReportTemplateMgrImpl : public KVXReportTemplateMgr {
    Q_OBJECT
public:
    /// Listens to the messager; notifications wait for the event loop.
    explicit KVXReportTemplateMgrImpl(QObject *parent = nullptr);

    /// The author that it fills in stays in info after a failure too.
    bool uploadTemplate(KVXTemplateInfo &info, const QJsonObject &content) override;
    /// A template that cannot be read is a success with an empty object.
    bool downloadTemplate(const QString &templateID, QJsonObject &content) override;
    /// Empties the list first, whatever comes of it.
    bool queryTemplates(QList<KVXTemplateInfo> &list) override;
    bool deleteTemplates(const QStringList &templateIDs) override;
    bool deleteTemplate(const QString &templateID) override;
    bool renameTemplate(const QString &templateID, const QString &name) override;
    /// False only without a server. Where there is no such template, info stays as it is.
    bool templateExist(const QString &name, bool &exists, KVXTemplateInfo &info) override;
    bool templateExistByID(const QString &templateID, bool &exists, KVXTemplateInfo &info) override;

public Q_SLOTS:
    /// One notification of the server; every sender's, the current user's too.
    void onNotify(const QJsonObject &message);

private:
    bool judge(const ServiceReply &reply);
    bool readExistence(const ServiceReply &reply, bool &exists, KVXTemplateInfo &info);
};
