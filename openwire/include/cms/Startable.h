#pragma once

#include <cms/CMSException.h>
#include <cms/Config.h>

namespace cms {

class CMS_API Startable {
public:
    virtual ~Startable() = default;

    /// Begins delivery of messages; what arrived before is kept and delivered now. Throws
    /// CMSException.
    virtual void start() = 0;
};

} // namespace cms
