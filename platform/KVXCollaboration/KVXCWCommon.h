#pragma once

#include <KVXExport.h>
#include <QObject>
#include <QString>

class IKVXSimpleTable;

/// Shared tables, working time and the common resource package. The order of the virtual
/// operations is binding.
class KVXCOLLABORATION_API KVXCWCommon : public QObject {
    Q_OBJECT
public:
    ~KVXCWCommon() override = default;

    /// Success: the manager owns the table from now on. Failure: the caller keeps it.
    virtual bool updateTable(IKVXSimpleTable *table) = 0;
    /// Fetches the table; null on failure. The pointer is good until the next successful update
    /// or fetch of the name, or the manager's end.
    virtual IKVXSimpleTable *getTable(const QString &name) = 0;
    /// The table fetched last, or else what getTable returns.
    virtual IKVXSimpleTable *table(const QString &name) = 0;
    /// Advances the working-time clock; any thread.
    virtual void tick() = 0;
    virtual bool resourceVersion(const QString &host, int port, QString &version) = 0;
    /// The server's status code; 1: the package lies in localFileName.
    virtual int downloadResource(const QString &localFileName, const QString &host, int port) = 0;

Q_SIGNALS:
    void commitFinish(const QString &name);
};
