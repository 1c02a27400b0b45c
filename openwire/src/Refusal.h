#pragma once

#include "Commands.h"

#include <cms/CMSException.h>
#include <cms/ExceptionListener.h>

#include <exception>
#include <string>

namespace kvx::openwire {

/// The broker's end of the connection was closed without a word.
class ConnectionClosed : public cms::CMSException {
public:
    using CMSException::CMSException;
    CMSException *clone() override { return new ConnectionClosed(*this); }
};

/// The exception for something the broker refused, by the last part of its class name; the text is
/// the broker's. A client ID in use is plain cms::CMSException.
std::exception_ptr toException(const Failure &failure);

/// Plain cms::CMSException of that text.
std::exception_ptr toException(const std::string &text);

/// Hands the exception to the listener. What the listener throws is swallowed.
void report(cms::ExceptionListener &listener, const std::exception_ptr &failure);

} // namespace kvx::openwire
