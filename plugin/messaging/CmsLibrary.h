#pragma once

namespace kvx {

/// Keeps the broker client library set up. The library does not count: set up twice it loses its
/// first registries, shut down early it takes them from everybody. So the first user of the
/// process sets it up and the last one shuts it down. Any thread.
class CmsLibrary {
public:
    CmsLibrary();
    ~CmsLibrary();
    CmsLibrary(const CmsLibrary &) = delete;
    CmsLibrary &operator=(const CmsLibrary &) = delete;
};

} // namespace kvx
