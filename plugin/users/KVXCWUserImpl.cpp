#include "users/KVXCWUserImpl.h"

#include "frame/KVXServerInfo.h"
#include "frame/Log.h"
#include "frame/ServiceRequest.h"
#include "frame/ThrownBy.h"
#include "login/CurrentUser.h"

#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonArray>
#include <utility>

KVXCWUserImpl::KVXCWUserImpl()
{
    KVXCWUserImpl::syncToLocal();
    if (KVXCWMessage *messager = KVXCollaborator::getInstance()->messager())
        connect(messager, &KVXCWMessage::notify, this, &KVXCWUserImpl::onNotify);
}

bool KVXCWUserImpl::updateRoles()
{
    m_statusCode = 0;
    // Before the mutex: without a server nobody waits for a request under way.
    if (!KVXServerInfo::getInstance()->isConfigured())
        return false;
    const std::lock_guard<std::mutex> wholeTable(m_mutex);
    QJsonArray roles;
    for (const KVXRole *role : std::as_const(m_roles))
        roles.append(role->toJson());
    const ServiceReply reply = ServiceRequest("updateroles")
                                   .set("Email", kvx::currentUserEmail())
                                   .set("Roles", roles)
                                   .post();
    m_statusCode = reply.status();
    return reply.ok();
}

bool KVXCWUserImpl::syncToLocal()
{
    const std::lock_guard<std::mutex> wholeTable(m_mutex);
    // Kept as is: a failure leaves the table empty.
    while (!m_roles.isEmpty())
        delete m_roles.takeFirst();
    m_users.clear(); // they went with their roles
    const bool fetched = fetchRoles();
    KVX_INFO("syncRolesToLocal: Result=%1", int(fetched));
    if (fetched)
        giveCurrentUserHisRole();
    return fetched;
}

QString KVXCWUserImpl::extraInfo()
{
    return QString();
}

int KVXCWUserImpl::keepAlive()
{
    return ServiceRequest("keepactive").set("Email", kvx::currentUserEmail()).post().status();
}

bool KVXCWUserImpl::updateUserProductVersion(KVXUser *user, KVXUser::KVXUserVersion version)
{
    if (!user)
        return false;
    const bool recorded = ServiceRequest("updateuserproductversion")
                              .set("Email", user->email())
                              .set("UserProductVersion", int(version))
                              .post()
                              .ok();
    if (recorded)
        user->setVersion(version);
    return recorded;
}

void KVXCWUserImpl::onNotify(const QJsonObject &message)
{
    if (isUpdating()) {
        KVX_INFO("IsUpdating @ KVXCWUserImpl::onNotify, Message is ignored.");
        return;
    }
    if (message.value(QLatin1String("notifymsg_type")).toString()
        != QLatin1String("notifymsg_role"))
        return;
    const QString email = kvx::currentUserEmail();
    if (message.value(QLatin1String("notifymsg_from")).toString() == email)
        return; // he knows what he changed
    const Permissions before = permissionsOf(email);
    if (const auto failure = kvx::thrownBy([this] { syncToLocal(); }))
        KVX_ERROR("Deal role message failed: exception=%1", *failure);
    // Kept as is: told also when nothing changed for him, or when the table could not be read.
    const auto tell = [&] { emit currentUserPermissionChanged(before, permissionsOf(email)); };
    if (const auto failure = kvx::thrownBy(tell))
        KVX_ERROR("Deal role message failed: exception=%1", *failure);
}

/// Fills the emptied table. Under the mutex.
bool KVXCWUserImpl::fetchRoles()
{
    const ServiceReply reply = ServiceRequest("getroles").post();
    if (!reply.ok())
        return false;
    const QJsonArray roles = reply["Roles"].toArray();
    for (const QJsonValue &element : roles) {
        const QJsonObject object = element.toObject();
        KVXRole *role = KVXRole::fromJson(object);
        m_roles.append(role);
        const QJsonArray users = object.value(QLatin1String("users")).toArray();
        for (const QJsonValue &user : users) {
            m_users.append(KVXUser::fromJson(role, user.toObject()));
            role->add(m_users.last());
        }
    }
    return true;
}

/// Under the mutex.
void KVXCWUserImpl::giveCurrentUserHisRole() const
{
    KVXUser *user = kvx::currentUser();
    for (const KVXRole *role : m_roles) {
        if (role->has(user)) {
            user->setRole(role->clone());
            return;
        }
    }
    // Kept as is: a user who has lost every role keeps the copy of his last one.
}

/// Of the first role in order that names the user; empty when none does.
KVXCWUserImpl::Permissions KVXCWUserImpl::permissionsOf(const QString &email) const
{
    for (const KVXRole *role : m_roles) {
        for (const KVXUser *user : role->users()) {
            if (user->email() == email)
                return role->permissions();
        }
    }
    return {};
}
