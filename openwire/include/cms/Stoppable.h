#pragma once

#include <cms/CMSException.h>
#include <cms/Config.h>

namespace cms {

class CMS_API Stoppable {
public:
    virtual ~Stoppable() = default;

    /// Holds delivery back until the next start; waits for a listener that is running. Throws
    /// CMSException.
    virtual void stop() = 0;
};

} // namespace cms
