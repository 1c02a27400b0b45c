#pragma once

#include <cms/Config.h>

namespace cms {

class Message;

/// Receives the messages of a consumer.
class CMS_API MessageListener {
public:
    virtual ~MessageListener() = default;

    /// Called on the session's thread, one message after the other. The message belongs to the
    /// library and dies on return: copy the text or clone() it. The message is acknowledged
    /// afterwards. No exception should leave it; one that does is swallowed.
    virtual void onMessage(const Message *message) = 0;
};

} // namespace cms
