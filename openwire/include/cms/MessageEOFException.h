#pragma once

#include <cms/CMSException.h>

namespace cms {

/// A read went past the end of a message's body.
class CMS_API MessageEOFException : public CMSException {
public:
    using CMSException::CMSException;
    MessageEOFException() = default;
    MessageEOFException(const MessageEOFException &ex) = default;
    virtual ~MessageEOFException() throw();

    virtual MessageEOFException *clone();
};

} // namespace cms
