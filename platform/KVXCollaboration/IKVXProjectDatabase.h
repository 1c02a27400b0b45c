#pragma once

class IKVXSQLiteModel;

/// An open project of the host. The plug-in borrows it for as long as the project is open.
class IKVXProjectDatabase {
public:
    virtual ~IKVXProjectDatabase() = default;
    /// The database model; owned by the project.
    virtual IKVXSQLiteModel *model() = 0;
};
