#pragma once

#include <cms/Config.h>

#include <exception>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace cms {

/// Base of everything the messaging interface throws, and thrown itself where no subclass fits:
/// a refused connection, a lost broker, a client ID that is in use.
/// Where the broker refused something the text is the broker's own, byte for byte.
class CMS_API CMSException : public std::exception {
public:
    CMSException();
    /// Takes over the cause of ex: after the copy the source has none.
    CMSException(const CMSException &ex);
    CMSException(const std::string &message);
    /// Owns cause from now on.
    CMSException(const std::string &message, const std::exception *cause);
    CMSException(const std::string &message, const std::exception *cause,
        const std::vector<std::pair<std::string, int>> &stackTrace);
    virtual ~CMSException() throw();

    virtual std::string getMessage() const;

    /// What led to this exception; null when there is nothing. Owned by the exception.
    virtual const std::exception *getCause() const;

    /// File names and lines given to setMark(), the first one given first.
    virtual std::vector<std::pair<std::string, int>> getStackTrace() const;
    virtual void setMark(const char *file, const int line);
    virtual void printStackTrace() const;
    virtual void printStackTrace(std::ostream &stream) const;
    virtual std::string getStackTraceString() const;

    /// The same text as getMessage().
    virtual const char *what() const throw();

    /// A copy of the same class, owned by the caller. Not const: the copy takes over the cause.
    virtual CMSException *clone();

private:
    CMSException &operator=(const CMSException &) = delete;

    std::string m_message;
    mutable std::unique_ptr<const std::exception> m_cause;
    std::vector<std::pair<std::string, int>> m_stackTrace;
};

} // namespace cms
