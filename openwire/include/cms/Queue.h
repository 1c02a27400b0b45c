#pragma once

#include <cms/CMSException.h>
#include <cms/Destination.h>

#include <string>

namespace cms {

class CMS_API Queue : public virtual Destination {
public:
    virtual std::string getQueueName() const = 0;
};

} // namespace cms
