// What a notification of the server does to the project list. All log lines of the list are
// written here, under the name of its class and the signature of its one operation that logs.
#define KVX_LOG_SOURCE "KVXCWProjectListImpl"
#define KVX_LOG_FUNCTION "void KVXCWProjectListImpl::onNotify(const QJsonObject &)"

#include "frame/Log.h"
#include "frame/ThrownBy.h"
#include "login/CurrentUser.h"
#include "projectlist/KVXCWProjectListImpl.h"
#include "projectlist/ProjectRecord.h"

#include <KVXCollaboration/KVXCWProjectData.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXPermissionControl.h>
#include <KVXCollaboration/KVXRole.h>
#include <QJsonArray>

/// What one message brought about; told to the receivers when it has been applied.
struct KVXCWProjectListImpl::Notified {
    enum NewKind { NothingNew, BecameVisible, CreatedByMe };

    QString guid; ///< of the last record that the command named
    bool saved = false;
    bool permissionsChanged = false;
    bool permissionRemoved = false;
    bool closedByPermissionRemoval = false;
    bool removed = false;
    bool unpublished = false;
    NewKind newKind = NothingNew;
    QMap<int, QPair<int, int>> permissionChanges; ///< type to (old value, new value)
};

namespace {

bool currentUserIsAdministrator()
{
    const KVXUser *user = kvx::currentUser();
    return user && user->role() && user->role()->isAdministrator();
}

int currentUserPermission(const KVXProjectInfo *record, KVXProjectInfo::ProjectPermissionType type)
{
    const KVXUser *user = kvx::currentUser();
    return user && record ? record->permission(*user, type) : -1;
}

bool canSeeNewProject(const KVXProjectInfo &record)
{
    if (currentUserIsAdministrator()
        || currentUserPermission(&record, KVXProjectInfo::ProjectRW) != -1)
        return true;
    const KVXPermissionControl *rights = KVXPermissionControl::getInstance();
    return (rights->canReadRateLibrary() || rights->canReadWriteRateLibrary())
        && (record.type() == KVXCWProjectList::getProjectType(BQLibrary)
            || record.type() == KVXCWProjectList::getProjectType(ResourceLibrary));
}

void copyLastEdit(const KVXProjectInfo &from, KVXProjectInfo &to)
{
    to.setLastEditor(from.lastEditor().name(), from.lastEditor().email());
    to.setModifiedTime(from.modifiedTime());
    to.setAmount(from.amount());
}

QString projectGuidOf(const QJsonObject &object)
{
    return object.value(QLatin1String("ProjectGUID")).toString();
}

} // namespace

// Each step on its own: a receiver that throws must neither leave the bracket open nor keep the
// message from being applied, and nothing may reach the event loop that runs this slot.
void KVXCWProjectListImpl::onNotify(const QJsonObject &message)
{
    const auto step = [this](auto action) {
        if (const auto failure = kvx::thrownBy(action))
            noteFailure(*failure);
    };
    Notified notified;
    step([&] { emit beginUpdate(); });
    step([&] { applyNotification(message, notified); });
    step([&] { announce(notified); });
}

void KVXCWProjectListImpl::noteFailure(const QString &what)
{
    KVX_ERROR("Deal project list message failed: exception=%1", what);
}

void KVXCWProjectListImpl::applyNotification(const QJsonObject &message, Notified &notified)
{
    if (message.value(QLatin1String("notifymsg_type")).toString()
        != QLatin1String("notifymsg_projectlist"))
        return;
    const QJsonValue payload = message.value(QLatin1String("notifymsg_content"));
    const QJsonObject content = payload.toObject();
    const QString command = message.value(QLatin1String("Command")).toString();
    KVX_INFO("recv project list message: msgCommand=%1", command);
    if (command == QLatin1String("Save"))
        applySave(content, notified);
    else if (command == QLatin1String("Rename"))
        applyRename(content, notified);
    else if (command == QLatin1String("Remove"))
        applyRemove(content, notified);
    else if (command == QLatin1String("Update"))
        applyUpdate(content, notified);
    else if (command == QLatin1String("New"))
        applyNew(message, notified);
    else if (command == QLatin1String("UpdateAddionalInfo"))
        applyAdditionalInfo(content, notified);
    else if (command == QLatin1String("PermissionChanged"))
        applyPermissions(payload.toArray(), notified);
}

void KVXCWProjectListImpl::applySave(const QJsonObject &content, Notified &notified)
{
    notified.guid = projectGuidOf(content);
    {
        const kvx::ListLock::Writing writing(m_lock);
        KVXProjectInfo *record = getProjectInfoByGUID(notified.guid);
        if (!record)
            return;
        copyLastEdit(*kvx::readProjectRecord(content), *record);
    }
    notified.saved = true;
    if (!m_openProjects.contains(notified.guid))
        return;
    KVX_INFO("Synchronize project logs: projectGUID=%1", notified.guid);
    KVXCWProjectData *synchronizer
        = KVXCollaborator::getInstance()->projectDataSynchronizer(notified.guid);
    if (synchronizer)
        synchronizer->syncLogs();
    // Kept as is: said whatever came of it; the synchroniser reports its own failures.
    KVX_INFO("Synchronize project logs successed");
}

void KVXCWProjectListImpl::applyRename(const QJsonObject &content, Notified &notified)
{
    notified.guid = projectGuidOf(content);
    const QString newName = content.value(QLatin1String("Description")).toString();
    {
        const kvx::ListLock::Writing writing(m_lock);
        KVXProjectInfo *record = getProjectInfoByGUID(notified.guid);
        if (!record)
            return;
        record->setName(newName);
    }
    KVX_INFO("rename project successed: projectGUID=%1, newName=%2", notified.guid, newName);
}

void KVXCWProjectListImpl::applyRemove(const QJsonObject &content, Notified &notified)
{
    notified.guid = projectGuidOf(content);
    {
        const kvx::ListLock::Writing writing(m_lock);
        // Kept as is: a project that is open here stays in the list.
        if (!getProjectInfoByGUID(notified.guid) || m_openProjects.contains(notified.guid))
            return;
        notified.removed = KVXCWProjectList::removeProject(notified.guid);
    }
    KVX_INFO("remvoe project successed: projectGUID=%1", notified.guid);
}

void KVXCWProjectListImpl::applyUpdate(const QJsonObject &content, Notified &notified)
{
    notified.guid = projectGuidOf(content);
    {
        const kvx::ListLock::Writing writing(m_lock);
        KVXProjectInfo *record = getProjectInfoByGUID(notified.guid);
        if (!record)
            return;
        const auto fresh = kvx::readProjectRecord(content);
        copyLastEdit(*fresh, *record);
        notified.unpublished = fresh->projectState() == 0 && record->projectState() == 1;
        record->setProjectState(fresh->projectState());
    }
    // Kept as is: an update is logged in the words of a removal.
    KVX_INFO("remvoe project info successed: projectGUID=%1", notified.guid);
}

void KVXCWProjectListImpl::applyNew(const QJsonObject &message, Notified &notified)
{
    // The client that made the project has fetched it already.
    if (message.value(QLatin1String("notifymsg_from")).toString() == kvx::currentUserEmail())
        return;
    const QJsonObject content = message.value(QLatin1String("notifymsg_content")).toObject();
    if (content.isEmpty())
        return;
    auto record = kvx::readProjectRecord(content);
    if (!canSeeNewProject(*record))
        return;
    const bool createdByMe = record->createUser().email() == kvx::currentUserEmail();
    append(std::move(record));
    notified.newKind = createdByMe ? Notified::CreatedByMe : Notified::BecameVisible;
    // Kept as is: the GUID is empty here and in projectOrPermNew; receivers look in the list.
    KVX_INFO("update new project info successed: projectGUID=%1", notified.guid);
}

void KVXCWProjectListImpl::applyAdditionalInfo(const QJsonObject &content, Notified &notified)
{
    notified.guid = projectGuidOf(content);
    {
        const kvx::ListLock::Writing writing(m_lock);
        KVXProjectInfo *record = getProjectInfoByGUID(notified.guid);
        if (!record)
            return;
        // An object here, where a whole record carries it as text.
        record->setAddtionalInfo(content.value(QLatin1String("AdditionalInfo")).toObject());
    }
    KVX_INFO("Update addional info successed: projectGUID=%1", notified.guid);
}

void KVXCWProjectListImpl::applyPermissions(const QJsonArray &records, Notified &notified)
{
    for (const QJsonValue &record : records)
        applyPermissions(record.toObject(), notified);
    KVX_INFO("Deal permission changed finished: projectGUID=%1", notified.guid);
}

void KVXCWProjectListImpl::applyPermissions(const QJsonObject &object, Notified &notified)
{
    // Kept as is: what a whole array brought about is told once, under its last GUID.
    notified.guid = projectGuidOf(object);
    auto fresh = kvx::readProjectRecord(object);
    const bool canAccess = currentUserPermission(fresh.get(), KVXProjectInfo::ProjectRW) != -1;

    const kvx::ListLock::Writing writing(m_lock);
    KVXProjectInfo *record = getProjectInfoByGUID(notified.guid);
    if (!record) {
        if (canAccess) {
            append(std::move(fresh));
            notified.newKind = Notified::BecameVisible;
        }
        return;
    }
    const auto open = m_openProjects.constFind(notified.guid);
    const bool isOpen = open != m_openProjects.constEnd();
    if (!canAccess) {
        notified.permissionRemoved = true;
        notified.closedByPermissionRemoval |= isOpen;
        removeRecord(notified.guid);
        return;
    }
    if (isOpen) {
        const bool administrator = currentUserIsAdministrator();
        for (const auto type : { KVXProjectInfo::ProjectRW, KVXProjectInfo::Money,
                 KVXProjectInfo::Report, KVXProjectInfo::Addendum }) {
            const int newValue = currentUserPermission(fresh.get(), type);
            const int oldValue = administrator ? newValue : currentUserPermission(*open, type);
            notified.permissionChanges.insert(type, { oldValue, newValue });
        }
    }
    // Kept as is: told for a project that is closed here too, then with an empty map.
    notified.permissionsChanged = true;
    record->setUserPermissions(fresh->userPermissions());
}

void KVXCWProjectListImpl::announce(Notified &notified)
{
    emit endUpdate();
    if (!isUpdating())
        emit beginChanged();
    if (notified.permissionsChanged)
        emit permissionChanged(notified.guid, notified.permissionChanges);
    if (notified.permissionRemoved)
        emit projectPermissionRemoved(notified.guid);
    if (notified.closedByPermissionRemoval)
        emit projCloseByPermRemoved(notified.guid);
    if (notified.unpublished)
        emit change2Unpublish(notified.guid);
    if (notified.removed)
        emit projectRemoved(notified.guid);
    if (notified.newKind != Notified::NothingNew)
        emit projectOrPermNew(notified.guid, notified.newKind == Notified::CreatedByMe);
    if (isUpdating())
        return;
    if (notified.saved) {
        KVX_INFO("emit KVXCWProjectList::projectSaved: projectGUID=%1", notified.guid);
        emit projectSaved(notified.guid);
    }
    emit changed();
}
