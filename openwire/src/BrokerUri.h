#pragma once

#include "WireFormat.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace kvx::openwire {

/// A broker's address with what its options ask for.
struct BrokerUri {
    std::string text;
    std::string scheme;
    std::string host; // without the brackets of an IPv6 address
    std::uint16_t port = 0; // 0: none given
    WireFormat wireFormat;
    std::chrono::milliseconds connectLimit { 10000 };
    /// For all that a new connection waits for until it is started or sends.
    std::chrono::milliseconds loginLimit { 15000 };
    std::chrono::milliseconds requestLimit { 15000 };
    std::chrono::milliseconds closeLimit { 2000 };

    /// Reads scheme://host:port?name=value&…; unknown names are ignored.
    /// cms::CMSException "Invalid Connection Uri detected." when it is no URI, or a known option
    /// has no sensible value.
    static BrokerUri parse(const std::string &text);
};

} // namespace kvx::openwire
