#include "ResponseHead.h"

#include <QList>

namespace kvx {

namespace {

const qint64 MostHeaderBytes = 256 * 1024; // of one exchange; our server sends less than 8 KiB
const int Sha256Size = 32;

// Repr-Digest is a dictionary of byte sequences (RFC 9530): sha-256=:Base64:, sha-512=:Base64:
bool findSha256(const QByteArray &value, QByteArray &digest)
{
    for (const QByteArray &item : value.split(',')) {
        const QByteArray member = item.trimmed();
        if (!member.toLower().startsWith("sha-256="))
            continue;
        const QByteArray sequence = member.mid(8);
        const bool delimited
            = sequence.size() > 2 && sequence.startsWith(':') && sequence.endsWith(':');
        digest = delimited ? QByteArray::fromBase64(sequence.mid(1, sequence.size() - 2))
                           : QByteArray();
        if (digest.size() != Sha256Size)
            digest.clear();
        return true;
    }
    return false;
}

} // namespace

bool ResponseHead::add(const char *line, qint64 size)
{
    m_bytes += size;
    if (m_bytes > MostHeaderBytes)
        return false;
    if (m_bodyBegan)
        return true;
    const QByteArray text = QByteArray(line, static_cast<int>(size)).trimmed();
    if (text.startsWith("HTTP/")) {
        startResponse(text);
    } else if (text.isEmpty()) {
        m_complete = m_status >= 200;
    } else if (const int colon = text.indexOf(':'); colon > 0) {
        addField(text.left(colon).trimmed().toLower(), text.mid(colon + 1).trimmed());
    }
    return true;
}

void ResponseHead::startResponse(const QByteArray &line)
{
    const qint64 bytes = m_bytes;
    *this = ResponseHead();
    m_bytes = bytes;
    m_status = line.mid(line.indexOf(' ') + 1, 3).toInt();
}

void ResponseHead::addField(const QByteArray &name, const QByteArray &value)
{
    if (name == "content-length") {
        bool isNumber = false;
        const qint64 length = value.toLongLong(&isNumber);
        m_contradicts = m_contradicts || !isNumber || length < 0
            || (m_contentLength >= 0 && m_contentLength != length);
        m_contentLength = length;
    } else if (name == "transfer-encoding") {
        m_chunked = value.toLower().endsWith("chunked");
    } else if (name == "kvx-reply") {
        ++m_fileReplies;
        m_fileReply = value;
    } else if (name == "kvx-exchange") {
        m_exchange = value;
    } else if (name == "repr-digest") {
        m_hasDigest = findSha256(value, m_sha256) || m_hasDigest;
    }
}

bool ResponseHead::tellsEnd() const
{
    const bool noBody = m_status == 204 || m_status == 304;
    return !m_contradicts && (m_chunked || m_contentLength >= 0 || noBody);
}

} // namespace kvx
