#pragma once

#include <cms/CMSException.h>
#include <cms/Destination.h>

#include <string>

namespace cms {

class CMS_API Topic : public virtual Destination {
public:
    virtual std::string getTopicName() const = 0;
};

} // namespace cms
