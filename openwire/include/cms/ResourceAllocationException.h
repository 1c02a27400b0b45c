#pragma once

#include <cms/CMSException.h>

namespace cms {

/// The broker has no room for what was asked.
class CMS_API ResourceAllocationException : public CMSException {
public:
    using CMSException::CMSException;
    ResourceAllocationException() = default;
    ResourceAllocationException(const ResourceAllocationException &ex) = default;
    virtual ~ResourceAllocationException() throw();

    virtual ResourceAllocationException *clone();
};

} // namespace cms
