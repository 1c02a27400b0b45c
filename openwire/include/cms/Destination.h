#pragma once

#include <cms/Config.h>

namespace cms {

/// Where messages go to and come from.
class CMS_API Destination {
public:
    enum DestinationType { TOPIC, QUEUE, TEMPORARY_TOPIC, TEMPORARY_QUEUE };

    virtual ~Destination() = default;

    virtual DestinationType getDestinationType() const = 0;

    /// A copy owned by the caller.
    virtual Destination *clone() const = 0;
    virtual void copy(const Destination &source) = 0;

    /// True for the same type and name.
    virtual bool equals(const Destination &other) const = 0;
};

} // namespace cms
