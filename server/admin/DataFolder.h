#pragma once

#include <stdexcept>
#include <string>

namespace kvx::server {

struct Config;

/// The data folder cannot be used; the text says why.
class DataFolderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Makes the folders that are missing, for the server's own user only. Throws DataFolderError.
void makeDataFolders(const Config &config);

/// Held while a server runs on a data folder; a second one is refused. The system lets go of it
/// when the process ends, however it ends.
class DataFolderLock {
public:
    /// Throws DataFolderError when another process holds it.
    explicit DataFolderLock(const Config &config);
    ~DataFolderLock();
    DataFolderLock(const DataFolderLock &) = delete;
    DataFolderLock &operator=(const DataFolderLock &) = delete;

private:
    int m_file;
};

} // namespace kvx::server
