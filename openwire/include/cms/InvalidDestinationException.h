#pragma once

#include <cms/CMSException.h>

namespace cms {

/// No destination was given, or one that does not come from this library.
class CMS_API InvalidDestinationException : public CMSException {
public:
    using CMSException::CMSException;
    InvalidDestinationException() = default;
    InvalidDestinationException(const InvalidDestinationException &ex) = default;
    virtual ~InvalidDestinationException() throw();

    virtual InvalidDestinationException *clone();
};

} // namespace cms
