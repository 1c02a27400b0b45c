#pragma once

#include <KVXExport.h>

class KVXProjectInfo;

/// Sends a project's permission set to the server. The change comes back as a notification.
class KVXCOLLABORATION_API KVXCWProjectPermission {
public:
    virtual ~KVXCWProjectPermission() = default;
    virtual bool updatePermissions(KVXProjectInfo *project) = 0;
};
