#pragma once

#include "KVXSQLite/Bookkeeping.h"

#include <KVXSQLite/IKVXSQLiteModelCommandFile.h>

namespace kvx::sqlite {

/// What stands before the changes of a command file. docs/change-logs.md gives every byte.
struct CommandHeader {
    int version = 0; ///< the log version that this file publishes
    std::int64_t time = 0; ///< seconds since 1970-01-01 00:00 UTC
    std::string projectGuid; ///< {8-4-4-4-12}, as the project was created
    PublishId publishId {};
    Digest schema {};
    std::string author; ///< e-mail, UTF-8, at most 254 bytes
};

/// A change log in memory. The host thread's, like everything of a project.
class CommandFile : public IKVXSQLiteModelCommandFile {
public:
    static constexpr std::size_t headerSize = 512;
    static constexpr std::size_t maxAuthor = 254;

    bool loadFromFile(const QString &path) override;

    /// Takes apart what `encode` made, checking everything that needs no project.
    Status decode(const unsigned char *data, std::size_t size);
    static Bytes encode(const CommandHeader &header, const Bytes &changeset);
    /// Writes beside the target and renames.
    static Status write(const QString &path, const CommandHeader &header, const Bytes &changeset);

    bool isLoaded() const { return m_loaded; }
    const CommandHeader &header() const { return m_header; }
    const Bytes &changeset() const { return m_changeset; }
    /// Why the last load failed.
    const std::string &errorText() const { return m_error; }

private:
    void clear();

    bool m_loaded = false;
    CommandHeader m_header;
    Bytes m_changeset;
    std::string m_error;
};

} // namespace kvx::sqlite
