#pragma once

#include <QMap>
#include <QString>
#include <QVariant>

/// What the host contributes to one save. Owned by the caller of the save.
class IKVXCWProjectAdditionalInfo {
public:
    virtual ~IKVXCWProjectAdditionalInfo() = default;
    /// Fills "ProjectLogFile" and "ProjectFile" (local paths) and "Amount" (decimal text).
    /// Called under the save lock, after the local copy has caught up.
    virtual void additionalInfo(QMap<QString, QVariant> &info) = 0;
    /// False ends the save before anything is written or sent.
    virtual bool isReady() = 0;
};
