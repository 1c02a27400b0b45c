#pragma once

#include <cms/Message.h>

namespace cms {

/// A body of plain bytes. Received only.
class CMS_API BytesMessage : public virtual Message {
public:
    /// Number of bytes of the body, inflated where it was compressed.
    virtual int getBodyLength() const = 0;

    /// A copy of getBodyLength() bytes, to be freed with delete[]; null when there are none.
    virtual unsigned char *getBodyBytes() const = 0;
};

} // namespace cms
