#pragma once

#include <KVXExport.h>
#include <QJsonObject>
#include <QString>

/// A named table of text cells that is read and written as a whole.
class KVXCOMMON_API IKVXSimpleTable {
public:
    virtual ~IKVXSimpleTable() = default;

    virtual QString name() const = 0;
    /// {"tablename": name, "tabledata": {"columns": […], "rows": [[…], …], and what else the
    /// data carried}}.
    virtual QJsonObject toJson() const = 0;

    /// Reads the form that toJson writes; empty "tabledata" gives an empty table of that name.
    /// Owned by the caller.
    static IKVXSimpleTable *fromJson(const QJsonObject &object);
};
