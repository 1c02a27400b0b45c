#pragma once

#include <string>

namespace kvx::host {

/// A folder of this process's own (mode 0700) that TMPDIR points at, so that nobody else can meet
/// the files that come and go there. Made before Qt is used, removed with its contents at the end;
/// what processes that died have left behind goes first.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    /// Empty when it could not be made.
    const std::string &path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace kvx::host
