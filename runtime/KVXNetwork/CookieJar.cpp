#include "CookieJar.h"

#include <QList>
#include <ctime>
#include <memory>

namespace kvx {

namespace {

// A cookie line has seven fields: domain, tail match, path, secure, expiry, name, value.
enum CookieField {
    DomainField,
    TailField,
    PathField,
    SecureField,
    ExpiryField,
    NameField,
    FieldCount = 7
};

bool isSameCookie(const QByteArray &a, const QByteArray &b)
{
    const QList<QByteArray> left = a.split('\t');
    const QList<QByteArray> right = b.split('\t');
    return left.size() >= FieldCount && right.size() >= FieldCount
        && left[DomainField] == right[DomainField] && left[PathField] == right[PathField]
        && left[NameField] == right[NameField];
}

bool isLive(const QByteArray &line, const QByteArray &name)
{
    const QList<QByteArray> fields = line.split('\t');
    if (fields.size() < FieldCount || fields[NameField] != name)
        return false;
    const qint64 expiry = fields[ExpiryField].toLongLong();
    return expiry == 0 || expiry > static_cast<qint64>(std::time(nullptr));
}

void removeCookie(QVector<QByteArray> &lines, const QByteArray &cookie)
{
    for (int i = lines.size() - 1; i >= 0; --i) {
        if (isSameCookie(lines[i], cookie))
            lines.remove(i);
    }
}

QVector<QByteArray> cookieLines(CURL *easy)
{
    QVector<QByteArray> lines;
    curl_slist *list = nullptr;
    curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &list);
    for (const curl_slist *item = list; item; item = item->next)
        lines.append(item->data);
    curl_slist_free_all(list);
    return lines;
}

QByteArray urlPart(CURLU *parsed, CURLUPart part)
{
    char *text = nullptr;
    if (curl_url_get(parsed, part, &text, CURLU_DEFAULT_PORT) != CURLUE_OK)
        return {};
    const QByteArray copy = QByteArray(text).toLower();
    curl_free(text);
    return copy;
}

QByteArray originOf(const QByteArray &url)
{
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), curl_url_cleanup);
    if (curl_url_set(parsed.get(), CURLUPART_URL, url.constData(), 0) != CURLUE_OK)
        return {};
    return urlPart(parsed.get(), CURLUPART_SCHEME) + "://" + urlPart(parsed.get(), CURLUPART_HOST)
        + ':' + urlPart(parsed.get(), CURLUPART_PORT);
}

} // namespace

CookieJar::Loan CookieJar::lend(CURL *easy, const QByteArray &url) const
{
    Loan loan;
    loan.origin = originOf(url);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        loan.generation = m_generation;
        const auto found = m_lines.find(loan.origin);
        if (found != m_lines.end())
            loan.lines = found->second;
    }
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, ""); // switches the engine on, reads nothing
    curl_easy_setopt(easy, CURLOPT_COOKIELIST, "ALL");
    for (const QByteArray &line : qAsConst(loan.lines))
        curl_easy_setopt(easy, CURLOPT_COOKIELIST, line.constData());
    return loan;
}

void CookieJar::takeBack(CURL *easy, const Loan &loan)
{
    const QVector<QByteArray> now = cookieLines(easy);
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, nullptr); // engine off; a reset would leak its list
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (loan.generation != m_generation)
        return;
    QVector<QByteArray> &kept = m_lines[loan.origin];
    for (const QByteArray &line : loan.lines) {
        if (!now.contains(line))
            kept.removeAll(line); // replaced or ended by this exchange
    }
    for (const QByteArray &line : now) {
        if (!loan.lines.contains(line)) {
            removeCookie(kept, line);
            kept.append(line);
        }
    }
    if (kept.isEmpty())
        m_lines.erase(loan.origin);
}

void CookieJar::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
    ++m_generation;
}

bool CookieJar::holds(const QByteArray &name) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto &entry : m_lines) {
        for (const QByteArray &line : entry.second) {
            if (isLive(line, name))
                return true;
        }
    }
    return false;
}

} // namespace kvx
