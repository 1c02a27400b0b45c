#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <string>

namespace kvx::server {

class Db;

/// Files by the SHA-256 of their bytes: `DIR/blobs/ab/<sha256>`. A blob is whole and synced to
/// disk before any row names it, and is never changed. Any thread; different processes may share
/// the folder.
class BlobStore {
public:
    /// `dataFolder` is the server's data folder.
    explicit BlobStore(std::string dataFolder)
        : m_folder(std::move(dataFolder))
    {
    }

    static constexpr int folderCount = 256;

    std::string path(const std::string &sha256) const;
    /// All folders there ever are, synced: making one costs as much as storing a blob. Throws
    /// std::system_error.
    void makeFolders() const;
    /// Links the whole file at `from` to the name of its digest and syncs file and folders; only
    /// after it may a row name the blob. One that is there already is kept, and is young again for
    /// the sweep, once its bytes were read and are the right ones. Throws std::system_error.
    void place(const std::string &from, const std::string &sha256) const;
    /// The row that other rows refer to, in the caller's transaction; places the blob again if it
    /// was swept since.
    void record(Db &db, const std::string &from, const std::string &sha256, std::int64_t size,
        Time now) const;

    /// The recorded size; throws DbError for a blob without a row.
    static std::int64_t size(Db &db, const std::string &sha256);

    /// Of the next `maximum` rows behind `last`, in order of their digests, drops those that are
    /// older than `before` and that no other row names, with their files. The digest of the last
    /// row looked at, empty at the end.
    std::string dropUnused(Db &db, const std::string &last, Time before, int maximum) const;
    /// Removes files without a row, last touched before `before`, of one of the folders.
    void dropStray(Db &db, int folder, Time before) const;

private:
    std::string m_folder;
};

} // namespace kvx::server
