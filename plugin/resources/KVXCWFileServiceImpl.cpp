#include "resources/KVXCWFileServiceImpl.h"

#include "frame/KVXServerInfo.h"
#include "frame/Log.h"
#include "frame/ServiceRequest.h"
#include "login/CurrentUser.h"

#include <KVXCollaboration/KVXCWFileServiceProgress.h>
#include <KVXNetwork/KVXNetwork.h>

namespace {

QString projectFileOnServer(const QString &guid)
{
    return guid + QLatin1String(".KVX");
}

} // namespace

KVXCWFileServiceImpl::~KVXCWFileServiceImpl() = default;

bool KVXCWFileServiceImpl::download(const QString &url, const QString &serverFileName,
    const QString &localFileName, KVXCWFileServiceProgress *progress)
{
    const bool ok = KVXNetwork::getInstance()->downloadFile(
        url, serverFileName, localFileName, progress, KVXCWFileServiceProgress::progress);
    KVX_INFO("Download file. result=%1, serverFileName=%2, localFileName=%3", int(ok),
        serverFileName, localFileName);
    return ok;
}

bool KVXCWFileServiceImpl::download(
    const QString &projectName, const QString &guid, const QString &localFileName)
{
    const ServiceReply reply = ServiceRequest("download")
                                   .set("LocalFileName", localFileName)
                                   .set("FileName", projectFileOnServer(guid))
                                   .set("Name", projectName)
                                   .set("ProjectGUID", guid)
                                   .post();
    if (!reply.sent())
        return false;
    KVX_INFO("Download file. result=%1, projectName=%2, guid=%3, localFileName=%4", int(reply.ok()),
        projectName, guid, localFileName);
    return reply.ok();
}

bool KVXCWFileServiceImpl::download(
    const QString &serverFileName, const QString &localFileName, KVXCWFileServiceProgress *progress)
{
    return download(
        KVXServerInfo::getInstance()->serviceUrl(), serverFileName, localFileName, progress);
}

bool KVXCWFileServiceImpl::upload(const QString &, const QString &localFileName,
    const QString &serverFileName, QJsonObject &request, const bool withMd5,
    KVXCWFileServiceProgress *progress)
{
    request.insert(QStringLiteral("service"), QStringLiteral("upload"));
    request.insert(QStringLiteral("LocalFileName"), localFileName);
    request.insert(QStringLiteral("FileName"), serverFileName);
    // Kept as is: lower case here, "Email" with a project file.
    request.insert(QStringLiteral("email"), kvx::currentUserEmail());
    if (withMd5)
        request.insert(QStringLiteral("md5"), md5(localFileName));
    const ServiceReply reply = ServiceRequest("upload", request)
                                   .progress(progress, KVXCWFileServiceProgress::progress)
                                   .postTo(KVXServerInfo::getInstance()->serviceUrl());
    KVX_INFO("Upload file. result=%1, localFileName=%2, serverFileName=%3", int(reply.ok()),
        localFileName, serverFileName);
    return reply.ok();
}

bool KVXCWFileServiceImpl::upload(const QString &projectName, const QString &guid,
    const QString &projectFileName, const QMap<QString, QVariant> &extra)
{
    if (!KVXServerInfo::getInstance()->isConfigured())
        return false; // before the digest of a large file is computed
    ServiceRequest request("upload");
    request.set("LocalFileName", projectFileName)
        .set("FileName", projectFileOnServer(guid))
        .set("Name", projectName)
        .set("Email", kvx::currentUserEmail())
        .set("ProjectGUID", guid)
        .set("md5", md5(projectFileName));
    for (auto entry = extra.begin(); entry != extra.end(); ++entry)
        request.set(entry.key(), entry.value().toString());
    const ServiceReply reply = request.post();
    KVX_INFO("Upload file. result=%1, projectName=%2, guid=%3, projectFileName=%4", int(reply.ok()),
        projectName, guid, projectFileName);
    return reply.ok();
}

bool KVXCWFileServiceImpl::upload(
    const QString &localFileName, const QString &serverFileName, KVXCWFileServiceProgress *progress)
{
    KVXServerInfo *server = KVXServerInfo::getInstance();
    if (!server->isConfigured())
        return false;
    const bool ok = KVXNetwork::getInstance()->uploadFile(server->serviceUrl(), localFileName,
        serverFileName, progress, KVXCWFileServiceProgress::progress);
    KVX_INFO("Upload file. result=%1, localFileName=%2, serverFileName=%3", int(ok), localFileName,
        serverFileName);
    return ok;
}

bool KVXCWFileServiceImpl::hasUpload(
    const QString &localFileName, const QString &serverFileName, bool withMd5)
{
    if (!KVXServerInfo::getInstance()->isConfigured())
        return false;
    ServiceRequest request("hasupload");
    request.set("FileName", serverFileName);
    if (withMd5)
        request.set("md5", md5(localFileName));
    return request.post().ok();
}
