#pragma once

#include <cms/CMSException.h>
#include <cms/Config.h>

namespace cms {

/// Hears of a lost connection and of errors that belong to no call.
class CMS_API ExceptionListener {
public:
    virtual ~ExceptionListener() = default;

    /// Called on a thread of the connection, one call after the other, at most once for a lost
    /// connection, and never from inside close(). No exception may leave it.
    virtual void onException(const cms::CMSException &ex) = 0;
};

} // namespace cms
