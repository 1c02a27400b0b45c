#pragma once

#include <cms/CMSException.h>

namespace cms {

/// The broker refused user name or password, or the right to what was asked.
class CMS_API CMSSecurityException : public CMSException {
public:
    using CMSException::CMSException;
    CMSSecurityException() = default;
    CMSSecurityException(const CMSSecurityException &ex) = default;
    virtual ~CMSSecurityException() throw();

    virtual CMSSecurityException *clone();
};

} // namespace cms
