#pragma once

#include <cms/ExceptionListener.h>

namespace cms {

/// Receives the outcome of one send that did not wait: exactly one of onSuccess() (the broker has
/// the message) and onException(), on the thread that also serves the exception listener, in the
/// order of the answers. Never owned; must live until it was called, which closing the connection
/// brings about at the latest.
class CMS_API AsyncCallback : public ExceptionListener {
public:
    virtual void onSuccess() = 0;
};

} // namespace cms
