#pragma once

#include "cli/Commands.h"

#include <KVXCollaboration/KVXCWUser.h>
#include <QString>

namespace kvx::cli {

/// The user manager with the role table as it was last shown. Commands change it and then send it
/// whole.
KVXCWUser *users();

/// Reads the table again where the last time has failed; Done, or the exit code of the error that
/// was reported.
int ensureRoles(Context &context);

/// By name, without regard to case. Null where there is none.
KVXRole *roleNamed(const QString &name);

/// Sends the changed table and reads it again, so that the local one is the server's whatever came
/// of it. The e-mail is that of the user to whom the change gave a role, if any.
int sendRoles(Context &context, const QString &sentence, const QString &email = {});

} // namespace kvx::cli
