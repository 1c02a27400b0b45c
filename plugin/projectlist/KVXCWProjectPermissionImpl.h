#pragma once

#include <KVXCollaboration/KVXCWProjectPermission.h>

/// Sends a project's permission set to the server. Host thread.
class KVXCWProjectPermissionImpl : public KVXCWProjectPermission {
public:
    /// The record itself stays as it is: the notification that follows brings the server's state.
    bool updatePermissions(KVXProjectInfo *project) override;
};
