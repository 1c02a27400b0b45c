#pragma once

#include <cms/Config.h>
#include <cms/Connection.h>

#include <string>

namespace cms {

class ExceptionListener;

/// Makes connections to one broker.
class CMS_API ConnectionFactory {
public:
    virtual ~ConnectionFactory() = default;

    /// brokerURI is tcp://host:port with options behind a "?"; an IPv6 address stands in brackets.
    /// CMSException "Invalid Connection Uri detected." when it cannot be read.
    ///
    /// Options, times in milliseconds: soConnectTimeout (10000), connection.connectResponseTimeout
    /// (15000, negotiation and login), connection.sendTimeout (15000, every other request),
    /// connection.closeTimeout (2000), wireFormat.MaxInactivityDuration (30000, 0 for none),
    /// wireFormat.MaxInactivityDurationInitalDelay (10000), wireFormat.MaxFrameSize (bytes),
    /// wireFormat.version (12), transport.useInactivityMonitor (true). Others are ignored.
    static cms::ConnectionFactory *createCMSConnectionFactory(const std::string &brokerURI);

    /// Opens the socket at once and throws CMSException when nobody answers, or
    /// "No Matching Factory Registered for format := <scheme>". Login comes later, except in the
    /// form with a client ID. User name and password are kept for later calls unless empty.
    virtual Connection *createConnection() = 0;
    virtual Connection *createConnection(const std::string &username, const std::string &password)
        = 0;
    virtual Connection *createConnection(
        const std::string &username, const std::string &password, const std::string &clientId)
        = 0;

    /// Given to connections made from now on.
    virtual void setExceptionListener(ExceptionListener *listener) = 0;
    virtual ExceptionListener *getExceptionListener() const = 0;
};

} // namespace cms
