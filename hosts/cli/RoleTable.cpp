#include "cli/RoleTable.h"

#include "client/Client.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXNetwork/KVXNetwork.h>

namespace kvx::cli {

namespace {

QString reasonOf(int status, const QString &email)
{
    switch (status) {
    case KVXNotAllowed:
        return QStringLiteral("Only an administrator can change roles.");
    case KVXLastAdministrator:
        return QStringLiteral("This would leave the server without an administrator.");
    case KVXNoSuchUser:
        return email.isEmpty()
            ? QStringLiteral("A user of the roles has no account any more; look at them again.")
            : QStringLiteral("There is no account \"%1\". Accounts are made on the server, with "
                             "\"kvx-server user add\".")
                  .arg(email);
    case KVXRolesChanged:
        return QStringLiteral("Somebody else changed the roles since you looked at them. Nothing "
                              "was changed; look at them again before you repeat it.");
    case KVXFailed:
        return QStringLiteral("No answer came (%1); look at the roles before you repeat it.")
            .arg(KVXNetwork::getInstance()->lastError());
    default:
        return ErrorCodeToString(static_cast<KVXErrorCode>(status));
    }
}

} // namespace

KVXCWUser *users()
{
    return KVXCollaborator::getInstance()->userManager();
}

int ensureRoles(Context &context)
{
    if (!users()->roles().isEmpty() || users()->syncToLocal())
        return Done;
    const QString error = KVXNetwork::getInstance()->lastError();
    return error.isEmpty()
        ? context.output.failed(Refused, QStringLiteral("The server does not show you the roles."))
        : context.output.failed(Unreachable, error);
}

KVXRole *roleNamed(const QString &name)
{
    for (KVXRole *role : users()->roles()) {
        if (role->name().compare(name, Qt::CaseInsensitive) == 0)
            return role;
    }
    return nullptr;
}

int sendRoles(Context &context, const QString &sentence, const QString &email)
{
    const bool sent = users()->updateRoles();
    const int status = users()->statusCode();
    const QString reason = sent ? QString() : reasonOf(status, email); // before the next request
    users()->syncToLocal();
    if (!sent)
        return context.output.failed(status == KVXFailed ? Unreachable : Refused, reason,
            { { QStringLiteral("code"), status } });
    context.client.readListAnew(); // the own role may be another one now
    return context.output.done(sentence);
}

} // namespace kvx::cli
