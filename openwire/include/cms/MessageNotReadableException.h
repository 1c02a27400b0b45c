#pragma once

#include <cms/CMSException.h>

namespace cms {

/// The body of a message that is only written was read.
class CMS_API MessageNotReadableException : public CMSException {
public:
    using CMSException::CMSException;
    MessageNotReadableException() = default;
    MessageNotReadableException(const MessageNotReadableException &ex) = default;
    virtual ~MessageNotReadableException() throw();

    virtual MessageNotReadableException *clone();
};

} // namespace cms
