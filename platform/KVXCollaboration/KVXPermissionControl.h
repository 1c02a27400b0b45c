#pragma once

#include <KVXExport.h>

/// Rate-library rights of the current user, read from his role at each call. Without a user or a
/// role: no rights.
class KVXCOLLABORATION_API KVXPermissionControl {
public:
    static KVXPermissionControl *getInstance();

    bool canReadRateLibrary() const;
    bool canReadWriteRateLibrary() const;

private:
    KVXPermissionControl() = default;
};
