#include "projectlist/KVXCWProjectListImpl.h"

#include "frame/ServiceRequest.h"
#include "login/CurrentUser.h"
#include "messaging/BlockingReceivers.h"
#include "projectlist/ProjectRecord.h"

#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonArray>
#include <utility>

KVXCWProjectListImpl::KVXCWProjectListImpl()
{
    KVXCWProjectListImpl::syncProjectList();
    kvx::addBlockingReceiver(this);
    if (KVXCWMessage *messager = KVXCollaborator::getInstance()->messager())
        m_notifications = connect(messager, &KVXCWMessage::notify, this,
            &KVXCWProjectListImpl::onNotify, Qt::BlockingQueuedConnection);
}

KVXCWProjectListImpl::~KVXCWProjectListImpl()
{
    disconnect(m_notifications);
    kvx::removeBlockingReceiver(this);
}

KVXProjectInfo *KVXCWProjectListImpl::readProjectInfo(const QJsonObject &object) const
{
    return kvx::readProjectRecord(object).release();
}

bool KVXCWProjectListImpl::syncProjectList()
{
    const kvx::ListLock::Writing writing(m_lock);
    const ServiceReply reply
        = ServiceRequest("projectlistsynctolocal").set("Email", kvx::currentUserEmail()).post();
    if (!reply.ok())
        return false;

    emit beginUpdate();
    for (const QList<KVXProjectInfo *> &records : std::as_const(m_projects))
        qDeleteAll(records);
    m_projects.clear();
    const QJsonArray projects = reply["data"].toObject().value(QLatin1String("Projects")).toArray();
    for (const QJsonValue &project : projects) {
        auto record = kvx::readProjectRecord(project.toObject());
        m_projects[record->type()].append(record.get());
        static_cast<void>(record.release());
    }
    attachOpenProjects();
    emit endUpdate();
    if (!isUpdating())
        emit changed();
    return true;
}

bool KVXCWProjectListImpl::fetchProject(const QString &guid)
{
    const ServiceReply reply = ServiceRequest("getproject").set("ProjectGUID", guid).post();
    // Kept as is: fetched twice, the project stands in the list twice.
    if (reply.ok())
        append(kvx::readProjectRecord(reply["Project"].toObject()));
    return reply.ok();
}

bool KVXCWProjectListImpl::clearProject(const QString &guid)
{
    const kvx::ListLock::Writing writing(m_lock);
    const QString cleared = guid; // the caller's text may live in a record that goes
    const bool found = KVXCWProjectList::clearProject(cleared);
    const auto open = m_openProjects.find(cleared);
    if (open != m_openProjects.end())
        *open = nullptr;
    return found;
}

void KVXCWProjectListImpl::append(std::unique_ptr<KVXProjectInfo> record)
{
    const kvx::ListLock::Writing writing(m_lock);
    const auto open = m_openProjects.find(record->guid());
    if (open != m_openProjects.end() && !*open) {
        *open = record.get();
        record->status(KVXProjectInfo::Opened);
    }
    m_projects[record->type()].append(record.get());
    static_cast<void>(record.release());
}

/// Deletes the first record of the project. Under the write lock.
void KVXCWProjectListImpl::removeRecord(const QString &guid)
{
    const auto open = m_openProjects.find(guid);
    if (open != m_openProjects.end())
        *open = nullptr;
    KVXCWProjectList::removeProject(guid);
}

/// Points the open projects at the records of a new list. Under the write lock.
void KVXCWProjectListImpl::attachOpenProjects()
{
    for (auto open = m_openProjects.begin(); open != m_openProjects.end(); ++open) {
        *open = getProjectInfoByGUID(open.key());
        if (*open)
            (*open)->status(KVXProjectInfo::Opened);
    }
}

QString KVXCWProjectListImpl::genProjectName()
{
    const ServiceReply reply = ServiceRequest("genprojectname").post();
    return reply.ok() ? reply.text("Name") : QString();
}

QString KVXCWProjectListImpl::genProjectNameEx()
{
    return genProjectName();
}

bool KVXCWProjectListImpl::newProject(
    TProjectsType type, const QString &name, const QString &guid, double *statusCode)
{
    const QString email = kvx::currentUserEmail();
    const ServiceReply reply = ServiceRequest("newproject")
                                   .set("Type", getProjectType(type))
                                   .set("Name", name)
                                   .set("ProjectGUID", guid)
                                   .set("CreatorName", kvx::currentUserName())
                                   .set("CreatorEmail", email)
                                   .set("Email", email)
                                   .set("Amount", QLatin1String("0.00"))
                                   .set("ProjectState", 0)
                                   .post();
    reply.storeRawStatus(statusCode);
    return reply.ok() && fetchProject(guid);
}

bool KVXCWProjectListImpl::addendumProject(
    TProjectsType type, const KVXProjectInfo &source, double *statusCode)
{
    const QString email = kvx::currentUserEmail();
    const ServiceReply reply = ServiceRequest("addendumproject")
                                   .set("Type", getProjectType(type))
                                   .set("Name", source.name())
                                   .set("ProjectGUID", source.guid())
                                   .set("CreatorName", kvx::currentUserName())
                                   .set("CreatorEmail", email)
                                   .set("Email", email)
                                   .set("Amount", source.amount())
                                   .set("ProjectState", 0)
                                   .set("BidStatus", source.bidStatus())
                                   .set("AddendumProjectGUID", source.addendumGuid())
                                   .post();
    reply.storeRawStatus(statusCode);
    return reply.ok() && fetchProject(source.guid());
}

bool KVXCWProjectListImpl::removeProject(const QString &guid)
{
    return ServiceRequest("removeproject")
        .set("ProjectGUID", guid)
        .set("Email", kvx::currentUserEmail())
        .post()
        .ok();
}

bool KVXCWProjectListImpl::updateProject(KVXProjectInfo *info)
{
    if (!info)
        return false;
    return ServiceRequest("updateproject", info->toJson())
        .set("Email", kvx::currentUserEmail())
        .post()
        .ok();
}

bool KVXCWProjectListImpl::renameProject(
    const QString &oldName, const QString &newName, const QString &guid, double *statusCode)
{
    const ServiceReply reply = ServiceRequest("renameproject")
                                   .set("OldName", oldName)
                                   .set("NewName", newName)
                                   .set("ProjectGUID", guid)
                                   .set("Email", kvx::currentUserEmail())
                                   .post();
    reply.storeRawStatus(statusCode);
    // Kept as is: the name itself changes when the notification comes back.
    if (reply.ok())
        emit nameChanged();
    return reply.ok();
}

bool KVXCWProjectListImpl::existsProject(const QString &name)
{
    return KVXCWProjectList::existsProject(name)
        || ServiceRequest("existsproject").set("Name", name).post().ok();
}

int KVXCWProjectListImpl::openProject(const QString &guid)
{
    const int status = ServiceRequest("openproject")
                           .set("Email", kvx::currentUserEmail())
                           .set("ProjectGUID", guid)
                           .post()
                           .status();
    if (status != 1)
        return status;
    {
        const kvx::ListLock::Writing writing(m_lock);
        KVXProjectInfo *record = getProjectInfoByGUID(guid);
        if (!record)
            return status;
        m_openProjects.insert(guid, record);
        record->status(KVXProjectInfo::Opened);
    }
    KVXCollaborator::getInstance()->projectDataSynchronizer(guid); // makes the project's own one
    return status;
}

bool KVXCWProjectListImpl::closeProject(const QString &guid)
{
    const kvx::ListLock::Writing writing(m_lock);
    const QString closed = guid; // the caller's text may live in what is dropped
    if (m_openProjects.contains(closed)) {
        KVXCollaborator::getInstance()->reset(true, closed);
        if (KVXProjectInfo *record = m_openProjects.take(closed))
            record->status(KVXProjectInfo::Closed);
    }
    const ServiceReply reply = ServiceRequest("closeproject")
                                   .set("Email", kvx::currentUserEmail())
                                   .set("ProjectGUID", closed)
                                   .post();
    if (reply.ok())
        emit projectClosed();
    return reply.ok();
}

int KVXCWProjectListImpl::lockProject(const QString &guid, bool releaseLock)
{
    const ServiceReply reply = ServiceRequest("projectlock")
                                   .set("ProjectGUID", guid)
                                   .set("Email", kvx::currentUserEmail())
                                   .set("ReleaseLock", releaseLock)
                                   .post();
    return reply.carried() ? reply.status() : 0;
}

QStringList KVXCWProjectListImpl::onlineEditors(const QString &guid)
{
    const ServiceReply reply = ServiceRequest("onlineeditors")
                                   .set("Email", kvx::currentUserEmail())
                                   .set("ProjectGUID", guid)
                                   .post();
    QStringList names;
    const QJsonArray users = reply.ok() ? reply["users"].toArray() : QJsonArray();
    for (const QJsonValue &user : users)
        names.append(user.toObject().value(QLatin1String("Name")).toString());
    return names;
}

bool KVXCWProjectListImpl::updateProjectAdditionalInfo(const QString &guid, const QJsonObject &info)
{
    const ServiceReply reply = ServiceRequest("updateprojectadditionalinfo")
                                   .set("Email", kvx::currentUserEmail())
                                   .set("ProjectGUID", guid)
                                   .set("AdditionalInfo", info)
                                   .post();
    KVXProjectInfo *record = reply.ok() ? getProjectInfoByGUID(guid) : nullptr;
    if (record)
        record->setAddtionalInfo(info);
    return reply.ok();
}

bool KVXCWProjectListImpl::newProjectGroup(TProjectsType type, const QString &name)
{
    return ServiceRequest("newprojectgroup")
        .set("Name", name)
        .set("Type", getProjectType(type))
        .post()
        .ok();
}

bool KVXCWProjectListImpl::removeProjectGroup(const QString &name)
{
    return ServiceRequest("removeprojectgroup").set("Name", name).post().ok();
}

bool KVXCWProjectListImpl::renameProjectGroup(const QString &oldName, const QString &newName)
{
    return ServiceRequest("renameprojectgroup")
        .set("OldName", oldName)
        .set("NewName", newName)
        .post()
        .ok();
}

bool KVXCWProjectListImpl::existsProjectGroup(const QString &name)
{
    return ServiceRequest("existsprojectgroup").set("Name", name).post().ok();
}
