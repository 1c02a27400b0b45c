#include <cms/CMSException.h>
#include <cms/CMSSecurityException.h>
#include <cms/IllegalStateException.h>
#include <cms/InvalidClientIdException.h>
#include <cms/InvalidDestinationException.h>
#include <cms/InvalidSelectorException.h>
#include <cms/MessageEOFException.h>
#include <cms/MessageFormatException.h>
#include <cms/MessageNotReadableException.h>
#include <cms/MessageNotWriteableException.h>
#include <cms/ResourceAllocationException.h>
#include <cms/UnsupportedOperationException.h>

#include <iostream>
#include <sstream>

namespace cms {

CMSException::CMSException() = default;

CMSException::CMSException(const CMSException &ex)
    : std::exception(ex)
    , m_message(ex.m_message)
    , m_cause(std::move(ex.m_cause))
    , m_stackTrace(ex.m_stackTrace)
{
}

CMSException::CMSException(const std::string &message)
    : m_message(message)
{
}

CMSException::CMSException(const std::string &message, const std::exception *cause)
    : m_message(message)
    , m_cause(cause)
{
}

CMSException::CMSException(const std::string &message, const std::exception *cause,
    const std::vector<std::pair<std::string, int>> &stackTrace)
    : m_message(message)
    , m_cause(cause)
    , m_stackTrace(stackTrace)
{
}

CMSException::~CMSException() throw() = default;

std::string CMSException::getMessage() const
{
    return m_message;
}

const std::exception *CMSException::getCause() const
{
    return m_cause.get();
}

std::vector<std::pair<std::string, int>> CMSException::getStackTrace() const
{
    return m_stackTrace;
}

void CMSException::setMark(const char *file, const int line)
{
    m_stackTrace.emplace_back(file, line);
}

void CMSException::printStackTrace() const
{
    printStackTrace(std::cerr);
}

void CMSException::printStackTrace(std::ostream &stream) const
{
    stream << getStackTraceString();
}

std::string CMSException::getStackTraceString() const
{
    std::ostringstream out;
    out << m_message << '\n';
    for (const auto &[file, line] : m_stackTrace)
        out << "\tFILE: " << file << ", LINE: " << line << '\n';
    return out.str();
}

const char *CMSException::what() const throw()
{
    return m_message.c_str();
}

CMSException *CMSException::clone()
{
    return new CMSException(*this);
}

// The destructors stand here so that each class has its type information in one place.
#define KVX_OPENWIRE_EXCEPTION(Name)                                                               \
    Name::~Name() throw() = default;                                                               \
    Name *Name::clone()                                                                            \
    {                                                                                              \
        return new Name(*this);                                                                    \
    }

KVX_OPENWIRE_EXCEPTION(CMSSecurityException)
KVX_OPENWIRE_EXCEPTION(IllegalStateException)
KVX_OPENWIRE_EXCEPTION(InvalidClientIdException)
KVX_OPENWIRE_EXCEPTION(InvalidDestinationException)
KVX_OPENWIRE_EXCEPTION(InvalidSelectorException)
KVX_OPENWIRE_EXCEPTION(MessageEOFException)
KVX_OPENWIRE_EXCEPTION(MessageFormatException)
KVX_OPENWIRE_EXCEPTION(MessageNotReadableException)
KVX_OPENWIRE_EXCEPTION(MessageNotWriteableException)
KVX_OPENWIRE_EXCEPTION(ResourceAllocationException)
KVX_OPENWIRE_EXCEPTION(UnsupportedOperationException)

#undef KVX_OPENWIRE_EXCEPTION

} // namespace cms
