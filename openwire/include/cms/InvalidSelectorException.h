#pragma once

#include <cms/CMSException.h>

namespace cms {

/// The broker did not understand a consumer's selector.
class CMS_API InvalidSelectorException : public CMSException {
public:
    using CMSException::CMSException;
    InvalidSelectorException() = default;
    InvalidSelectorException(const InvalidSelectorException &ex) = default;
    virtual ~InvalidSelectorException() throw();

    virtual InvalidSelectorException *clone();
};

} // namespace cms
