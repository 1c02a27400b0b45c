#pragma once

#include <cms/CMSException.h>

namespace cms {

/// This library does not offer what was asked.
class CMS_API UnsupportedOperationException : public CMSException {
public:
    using CMSException::CMSException;
    UnsupportedOperationException() = default;
    UnsupportedOperationException(const UnsupportedOperationException &ex) = default;
    virtual ~UnsupportedOperationException() throw();

    virtual UnsupportedOperationException *clone();
};

} // namespace cms
