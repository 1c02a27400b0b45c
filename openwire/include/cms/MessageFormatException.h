#pragma once

#include <cms/CMSException.h>

namespace cms {

/// A body or a property does not have the form that was asked for.
class CMS_API MessageFormatException : public CMSException {
public:
    using CMSException::CMSException;
    MessageFormatException() = default;
    MessageFormatException(const MessageFormatException &ex) = default;
    virtual ~MessageFormatException() throw();

    virtual MessageFormatException *clone();
};

} // namespace cms
