#include "Refusal.h"

#include <cms/CMSSecurityException.h>
#include <cms/IllegalStateException.h>
#include <cms/InvalidDestinationException.h>
#include <cms/InvalidSelectorException.h>
#include <cms/ResourceAllocationException.h>

#include <algorithm>

namespace kvx::openwire {

namespace {

std::string lastPartLowered(const std::string &className)
{
    std::string part = className.substr(className.rfind('.') + 1);
    std::transform(part.begin(), part.end(), part.begin(),
        [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return part;
}

} // namespace

std::exception_ptr toException(const Failure &failure)
{
    const std::string kind = lastPartLowered(failure.className);
    const std::string &text = failure.text.empty() ? failure.className : failure.text;
    if (kind == "securityexception" || kind == "jmssecurityexception")
        return std::make_exception_ptr(cms::CMSSecurityException(text));
    if (kind == "illegalstateexception")
        return std::make_exception_ptr(cms::IllegalStateException(text));
    if (kind == "invaliddestinationexception")
        return std::make_exception_ptr(cms::InvalidDestinationException(text));
    if (kind == "invalidselectorexception")
        return std::make_exception_ptr(cms::InvalidSelectorException(text));
    if (kind == "resourceallocationexception")
        return std::make_exception_ptr(cms::ResourceAllocationException(text));
    return toException(text);
}

std::exception_ptr toException(const std::string &text)
{
    return std::make_exception_ptr(cms::CMSException(text));
}

void report(cms::ExceptionListener &listener, const std::exception_ptr &failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const cms::CMSException &ex) {
        try {
            listener.onException(ex);
        } catch (...) {
            // A listener is asked not to throw; there is nobody left to tell.
        }
    }
}

} // namespace kvx::openwire
