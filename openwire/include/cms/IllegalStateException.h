#pragma once

#include <cms/CMSException.h>

namespace cms {

/// The call does not fit the object's state, for instance a client ID set too late.
class CMS_API IllegalStateException : public CMSException {
public:
    using CMSException::CMSException;
    IllegalStateException() = default;
    IllegalStateException(const IllegalStateException &ex) = default;
    virtual ~IllegalStateException() throw();

    virtual IllegalStateException *clone();
};

} // namespace cms
