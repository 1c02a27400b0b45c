#include "UsersFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QJsonArray>

namespace kvx::test {

namespace {

const char *const permissionKeys[] = { "AllProjectReadWrite", "AllProjectReview", "ExportProject",
    "ExportUnitRate", "UploadReportSetting", "ReadOnlyRateLibrary", "ReadWriteRateLibrary",
    "ReadWriteBQLibrary", "Administrator" };

} // namespace

QJsonObject role(const char *name, std::initializer_list<const char *> permissions,
    std::initializer_list<const char *> emails)
{
    QJsonObject object { { QStringLiteral("Name"), text(name) } };
    for (const char *key : permissionKeys)
        object.insert(text(key), 0);
    for (const char *key : permissions)
        object.insert(text(key), 1);
    QJsonArray users;
    for (const char *email : emails)
        users.append(QJsonObject { { QStringLiteral("Name"), text("Somebody") },
            { QStringLiteral("Email"), text(email) },
            { QStringLiteral("UserProductVersion"), 2 } });
    object.insert(QStringLiteral("users"), users);
    return object;
}

QJsonObject table(const QList<QJsonObject> &roles)
{
    QJsonArray array;
    for (const QJsonObject &object : roles)
        array.append(object);
    return { { QStringLiteral("statuscode"), 1 }, { QStringLiteral("Roles"), array } };
}

QJsonObject roleMessage(const char *from)
{
    return { { QStringLiteral("notifymsg_type"), QStringLiteral("notifymsg_role") },
        { QStringLiteral("notifymsg_from"), text(from) },
        { QStringLiteral("notifymsg_to"), QString() },
        { QStringLiteral("Command"), QStringLiteral("Update") },
        { QStringLiteral("notifymsg_content"),
            QJsonObject { { QStringLiteral("Command"), QStringLiteral("Update") } } } };
}

QString granted(const KVXCWUserImpl::Permissions &permissions)
{
    QStringList names;
    for (auto at = permissions.begin(); at != permissions.end(); ++at) {
        if (at.value() != 0)
            names.append(text(permissionKeys[at.key()]));
    }
    return names.isEmpty() && !permissions.isEmpty() ? text("none") : names.join(u' ');
}

void UsersTest::answerRoles(const QList<QJsonObject> &roles)
{
    host.network.answer(QStringLiteral("getroles"), table(roles));
}

void UsersTest::makeUsers(const QList<QJsonObject> &roles)
{
    answerRoles(roles);
    users = new KVXCWUserImpl;
    KVXCollaborator::getInstance()->setUserManager(users);
    QObject::connect(users, &KVXCWUser::currentUserPermissionChanged,
        [this](const KVXCWUserImpl::Permissions &before, const KVXCWUserImpl::Permissions &after) {
            noteSignal(granted(before) + text(" > ") + granted(after));
        });
    forget();
}

QStringList UsersTest::roleTexts() const
{
    QStringList texts;
    for (const KVXRole *role : users->roles()) {
        QStringList words { role->name() + u':' };
        for (const KVXUser *user : role->users())
            words.append(user->email());
        texts.append(words.join(u' '));
    }
    return texts;
}

} // namespace kvx::test
