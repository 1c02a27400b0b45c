#pragma once

#include <cms/Closeable.h>
#include <cms/Message.h>
#include <cms/MessageListener.h>
#include <cms/Startable.h>
#include <cms/Stoppable.h>

namespace cms {

/// Receives the messages of one destination. Either through a listener or through receive().
///
/// close() returns within two seconds even when a listener does not return; the listener must then
/// live until it has. Called from inside the listener it does not wait for it.
class CMS_API MessageConsumer : public Closeable, public Startable, public Stoppable {
public:
    /// The next message, owned by the caller; waits without limit, for millisecs, or not at all.
    /// Null when none came or the consumer was closed meanwhile. CMSException when the connection
    /// is lost, or when a listener is set in the session.
    virtual Message *receive() = 0;
    virtual Message *receive(int millisecs) = 0;
    virtual Message *receiveNoWait() = 0;

    /// Not owned. On return the earlier listener is no longer running and will not be called again:
    /// the call waits for it without limit, except when made by the listener itself.
    virtual void setMessageListener(MessageListener *listener) = 0;
    virtual MessageListener *getMessageListener() const = 0;

    virtual std::string getMessageSelector() const = 0;
};

} // namespace cms
