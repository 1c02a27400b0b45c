#pragma once

#include <QByteArray>
#include <QVector>
#include <curl/curl.h>
#include <map>
#include <mutex>

namespace kvx {

/// The cookies of the session, in memory only, one set a server. A server is host AND port:
/// cookies as such are not bound to a port, and the session must not reach another service on the
/// same host. libcurl parses, matches and expires; this class only carries its cookie lines from
/// one handle to the next. Callable from several threads.
class CookieJar {
public:
    /// What a handle was given at the start of an exchange.
    struct Loan {
        QByteArray origin;
        QVector<QByteArray> lines;
        unsigned generation = 0;
    };

    /// Gives the handle the cookies of the URL's server and no others.
    Loan lend(CURL *easy, const QByteArray &url) const;
    /// Takes over what the exchange has changed, and nothing else: another thread may have logged
    /// in meanwhile. Ignored after clear().
    void takeBack(CURL *easy, const Loan &loan);
    void clear();
    /// True while a cookie of this name is held that has not expired.
    bool holds(const QByteArray &name) const;

private:
    mutable std::mutex m_mutex;
    std::map<QByteArray, QVector<QByteArray>> m_lines; ///< by origin
    unsigned m_generation = 0;
};

} // namespace kvx
