#pragma once

#include <QString>

class KVXUser;

/// The login manager's current user. Without a login manager or a user: null and empty texts.
namespace kvx {

KVXUser *currentUser();
QString currentUserEmail();
QString currentUserName();

} // namespace kvx
