#pragma once

#include <cms/CMSException.h>

namespace cms {

/// The client ID is empty. One that is in use elsewhere arrives as plain CMSException.
class CMS_API InvalidClientIdException : public CMSException {
public:
    using CMSException::CMSException;
    InvalidClientIdException() = default;
    InvalidClientIdException(const InvalidClientIdException &ex) = default;
    virtual ~InvalidClientIdException() throw();

    virtual InvalidClientIdException *clone();
};

} // namespace cms
