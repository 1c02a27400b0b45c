#pragma once

#include <KVXExport.h>

class QString;

/// A change log loaded into memory: the changes of one published save, ready to be executed on a
/// project database. The caller owns it and deletes it through the virtual destructor.
class IKVXSQLiteModelCommandFile {
public:
    virtual ~IKVXSQLiteModelCommandFile() = default;

    /// Reads and checks the file at `path`: length, digests, structure. False for anything but a
    /// whole and well-formed change log; the object then holds nothing. May be called again.
    virtual bool loadFromFile(const QString &path) = 0;
};

/// A new, empty command file; owned by the caller. Never null.
KVXSQLITE_API IKVXSQLiteModelCommandFile *CreateSQLiteModelCommandFile();
