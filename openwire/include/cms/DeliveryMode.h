#pragma once

#include <cms/Config.h>

namespace cms {

class CMS_API DeliveryMode {
public:
    enum DELIVERY_MODE {
        PERSISTENT = 0, ///< send waits until the broker has the message; the default of a producer
        NON_PERSISTENT = 1 ///< send does not wait for an answer
    };
    virtual ~DeliveryMode() = default;
};

} // namespace cms
