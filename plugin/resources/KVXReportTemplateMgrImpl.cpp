#include "resources/KVXReportTemplateMgrImpl.h"

#include "frame/KVXServerInfo.h"
#include "frame/Log.h"
#include "frame/ServiceRequest.h"
#include "frame/ThrownBy.h"
#include "login/CurrentUser.h"

#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonArray>
#include <QJsonDocument>

namespace {

KVXTemplateInfo readInfo(const QJsonObject &object)
{
    const auto text = [&object](const char *key) { return object[QLatin1String(key)].toString(); };
    KVXTemplateInfo info;
    info.templateID = text("templateID");
    info.type = object[QLatin1String("type")].toInt();
    info.name = text("name");
    info.author = text("author");
    info.authorEmail = text("authorEmail");
    info.projectVersion = text("projectVersion");
    info.md5 = text("md5");
    info.createDate = text("createDate");
    info.lastModifyDate = text("lastModifyDate");
    return info;
}

QList<KVXTemplateInfo> readInfos(const QJsonValue &array)
{
    QList<KVXTemplateInfo> infos;
    const QJsonArray objects = array.toArray();
    for (const QJsonValue &object : objects)
        infos.append(readInfo(object.toObject()));
    return infos;
}

QString encoded(const QJsonObject &content)
{
    return QString::fromLatin1(QJsonDocument(content).toJson().toBase64());
}

QJsonObject decoded(const QString &text)
{
    return QJsonDocument::fromJson(QByteArray::fromBase64(text.toLocal8Bit())).object();
}

} // namespace

KVXReportTemplateMgrImpl::KVXReportTemplateMgrImpl(QObject *parent)
    : KVXReportTemplateMgr(parent)
{
    if (KVXCWMessage *messager = KVXCollaborator::getInstance()->messager())
        connect(messager, &KVXCWMessage::notify, this, &KVXReportTemplateMgrImpl::onNotify);
}

bool KVXReportTemplateMgrImpl::uploadTemplate(KVXTemplateInfo &info, const QJsonObject &content)
{
    clearErrorInfo();
    if (!KVXServerInfo::getInstance()->isConfigured())
        return false;
    if (info.author.isEmpty())
        info.author = kvx::currentUserName();
    if (info.authorEmail.isEmpty())
        info.authorEmail = kvx::currentUserEmail();
    const ServiceReply reply = ServiceRequest("reportTemplateUpload")
                                   .set("name", info.name)
                                   .set("type", info.type)
                                   .set("projectVersion", info.projectVersion)
                                   .set("template", encoded(content))
                                   .set("author", info.author)
                                   .set("authorEmail", info.authorEmail)
                                   .post();
    if (!judge(reply))
        return false;
    info.md5 = reply.text("md5");
    info.createDate = reply.text("createDate");
    info.templateID = reply.text("templateID");
    info.lastModifyDate = reply.text("lastModifyDate");
    return true;
}

bool KVXReportTemplateMgrImpl::downloadTemplate(const QString &templateID, QJsonObject &content)
{
    clearErrorInfo();
    content = {};
    const ServiceReply reply
        = ServiceRequest("reportTemplateDownload").set("templateID", templateID).post();
    if (!judge(reply))
        return false;
    content = decoded(reply.text("template"));
    return true;
}

bool KVXReportTemplateMgrImpl::queryTemplates(QList<KVXTemplateInfo> &list)
{
    clearErrorInfo();
    list.clear();
    const ServiceReply reply = ServiceRequest("reportTemplateQuery").post();
    if (!judge(reply))
        return false;
    list = readInfos(reply["reportTemplateArray"]);
    return true;
}

bool KVXReportTemplateMgrImpl::deleteTemplates(const QStringList &templateIDs)
{
    clearErrorInfo();
    return judge(ServiceRequest("reportTemplateDelete")
                     .set("templateIDArray", QJsonArray::fromStringList(templateIDs))
                     .post());
}

bool KVXReportTemplateMgrImpl::deleteTemplate(const QString &templateID)
{
    return deleteTemplates({ templateID });
}

bool KVXReportTemplateMgrImpl::renameTemplate(const QString &templateID, const QString &name)
{
    clearErrorInfo();
    return judge(ServiceRequest("reportTemplateRename")
                     .set("templateID", templateID)
                     .set("name", name)
                     .post());
}

bool KVXReportTemplateMgrImpl::templateExist(
    const QString &name, bool &exists, KVXTemplateInfo &info)
{
    clearErrorInfo();
    return readExistence(
        ServiceRequest("reportTemplateExist").set("name", name).post(), exists, info);
}

bool KVXReportTemplateMgrImpl::templateExistByID(
    const QString &templateID, bool &exists, KVXTemplateInfo &info)
{
    clearErrorInfo();
    return readExistence(
        ServiceRequest("reportTemplateExistByID").set("templateID", templateID).post(), exists,
        info);
}

void KVXReportTemplateMgrImpl::onNotify(const QJsonObject &message)
{
    if (message.value(QLatin1String("notifymsg_type")).toString()
        != QLatin1String("notifymsg_reportTemplate"))
        return;
    if (message.value(QLatin1String("Command")).toString() != QLatin1String("Update"))
        return;
    const QJsonObject content = message.value(QLatin1String("notifymsg_content")).toObject();
    QList<KVXTemplateInfo> infos = readInfos(content.value(QLatin1String("reportTemplateArray")));
    if (const auto failure = kvx::thrownBy([&] { emit templateInfoChanged(infos); }))
        KVX_ERROR("Deal report template message failed: exception=%1", *failure);
}

bool KVXReportTemplateMgrImpl::judge(const ServiceReply &reply)
{
    if (reply.carried() && reply.ok())
        return true;
    m_errorCode = reply.status();
    // Kept as is: the text stands under the key without characters, not under "error".
    m_errorText = reply.text("");
    return false;
}

bool KVXReportTemplateMgrImpl::readExistence(
    const ServiceReply &reply, bool &exists, KVXTemplateInfo &info)
{
    if (!reply.sent())
        return false;
    // Kept as is: any refusal reads as "there is none".
    exists = judge(reply);
    if (exists)
        info = readInfo(reply["reportTemplateInfo"].toObject());
    return true;
}
