#pragma once

#include <cms/CMSException.h>
#include <cms/Config.h>

namespace cms {

class CMS_API Closeable {
public:
    virtual ~Closeable() = default;

    /// Releases the broker's resources of the object; calling it again does nothing. Throws
    /// CMSException.
    virtual void close() = 0;
};

} // namespace cms
