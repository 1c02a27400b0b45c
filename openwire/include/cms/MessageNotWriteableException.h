#pragma once

#include <cms/CMSException.h>

namespace cms {

/// Body or properties of a received message were changed.
class CMS_API MessageNotWriteableException : public CMSException {
public:
    using CMSException::CMSException;
    MessageNotWriteableException() = default;
    MessageNotWriteableException(const MessageNotWriteableException &ex) = default;
    virtual ~MessageNotWriteableException() throw();

    virtual MessageNotWriteableException *clone();
};

} // namespace cms
