#pragma once

#include <cms/Closeable.h>
#include <cms/Session.h>
#include <cms/Startable.h>
#include <cms/Stoppable.h>

#include <string>

namespace cms {

class ExceptionListener;

/// A connection to a broker. Not delivering until start().
///
/// Client ID and credentials go to the broker with the first of setClientID(), createSession() and
/// start(): that call throws when the broker refuses them. A client ID that is in use arrives as
/// plain CMSException whose text contains "already connected"; a wrong password as
/// CMSSecurityException. The connection is of no use afterwards.
///
/// After the broker was lost every call but close() throws CMSException with the first failure's
/// text; there is no reconnection.
class CMS_API Connection : public Startable, public Stoppable, public Closeable {
public:
    /// Leaves the broker, which frees the client ID, ends all sessions and frees the socket.
    /// Waits up to two seconds for the broker and up to two for listeners that are running; what
    /// has not ended then ends on its own later. May be called from inside any listener. Deleting
    /// the connection does the same.
    virtual void close() = 0;

    virtual Session *createSession() = 0;
    virtual Session *createSession(Session::AcknowledgeMode ackMode) = 0;

    /// Empty when none was set.
    virtual std::string getClientID() const = 0;

    /// Must come before everything else on the connection, otherwise IllegalStateException.
    /// InvalidClientIdException when it is empty. When the broker closes the connection within a
    /// second instead of answering, one more is opened and tried.
    virtual void setClientID(const std::string &clientID) = 0;

    virtual ExceptionListener *getExceptionListener() const = 0;

    /// Not owned. On return the earlier listener is no longer running: the call waits for it
    /// without limit, except when made by the listener itself.
    virtual void setExceptionListener(ExceptionListener *listener) = 0;
};

} // namespace cms
