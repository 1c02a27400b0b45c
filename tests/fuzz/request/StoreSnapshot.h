#pragma once

#include <filesystem>
#include <set>
#include <sqlite3.h>
#include <string>

namespace kvx::test {

/// A server's database and files as they were, to go back to after each input. Nothing may be under
/// way then.
class StoreSnapshot {
public:
    explicit StoreSnapshot(const std::string &dataFolder);
    ~StoreSnapshot();
    StoreSnapshot(const StoreSnapshot &) = delete;
    StoreSnapshot &operator=(const StoreSnapshot &) = delete;

    /// Whether anything was written since the last restore.
    bool isChanged();
    void restore();

private:
    int dataVersion();
    std::set<std::filesystem::path> files() const;

    const std::filesystem::path m_folder;
    sqlite3 *m_live = nullptr;
    sqlite3 *m_kept = nullptr;
    int m_version = 0;
    std::set<std::filesystem::path> m_files;
};

} // namespace kvx::test
