#pragma once

#include <cms/Message.h>

namespace cms {

class CMS_API TextMessage : public virtual Message {
public:
    /// The bytes of the wire: modified UTF-8, that is U+0000 as C0 80 and a character above U+FFFF
    /// as two three-byte surrogates. Empty for a message without body. A compressed body is
    /// inflated; MessageFormatException when it is damaged or inflates beyond the frame limit.
    virtual std::string getText() const = 0;

    /// Expects modified UTF-8. Other consumers may be unable to read a four-byte sequence.
    virtual void setText(const char *msg) = 0;
    virtual void setText(const std::string &msg) = 0;
};

} // namespace cms
