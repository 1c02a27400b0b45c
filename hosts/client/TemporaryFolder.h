#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kvx::host {

/// A folder of this process's own (mode 0700) that TMPDIR points at, so that nobody else can meet
/// the files that come and go there. Made before Qt is used, removed with its contents at the end;
/// what processes that died have left behind goes first.
///
/// Nothing in it is worth keeping, so it lies in memory where there is room: a thousand downloaded
/// logs then wait for no disk. A TMPDIR that is set already is somebody's decision and is kept to.
class TemporaryFolder {
public:
    /// Where a memory file system may be, each with what must be free there.
    struct Memory {
        std::vector<std::string> folders;
        std::uint64_t room; ///< bytes
    };

    /// XDG_RUNTIME_DIR or /dev/shm with 1 GiB free, else the system's temporary folder.
    TemporaryFolder();
    explicit TemporaryFolder(const Memory &memory);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    /// Empty when it could not be made.
    const std::string &path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace kvx::host
