#pragma once

#include <QByteArray>

namespace kvx {

/// The status line and headers of one response, fed line by line; a new status line (after an
/// interim response) starts it afresh.
class ResponseHead {
public:
    /// False when the headers of the exchange are larger than any server of ours sends.
    bool add(const char *line, qint64 size);
    /// From here on header lines are trailers and are ignored.
    void bodyBegan() { m_bodyBegan = true; }

    /// True once the final response's headers are complete.
    bool complete() const { return m_complete; }
    int status() const { return m_status; }
    /// True when the end of the body can be told from a broken connection.
    bool tellsEnd() const;
    /// -1: not told.
    qint64 contentLength() const { return m_contentLength; }
    /// True when the body is a file and the JSON reply stands in the header "Kvx-Reply".
    bool hasFileReply() const { return m_fileReplies > 0; }
    /// Empty when the header came more than once.
    QByteArray fileReply() const { return m_fileReplies == 1 ? m_fileReply : QByteArray(); }
    /// True when the server names a SHA-256 of the body; sha256() is empty when it is no digest.
    bool hasDigest() const { return m_hasDigest; }
    const QByteArray &sha256() const { return m_sha256; }
    /// The mark of the request that is answered; empty where the peer tells none.
    const QByteArray &exchange() const { return m_exchange; }

private:
    void startResponse(const QByteArray &line);
    void addField(const QByteArray &name, const QByteArray &value);

    qint64 m_bytes = 0;
    bool m_bodyBegan = false;
    bool m_complete = false;
    int m_status = 0;
    bool m_chunked = false;
    bool m_contradicts = false; ///< lengths that are none or differ
    qint64 m_contentLength = -1;
    int m_fileReplies = 0;
    QByteArray m_fileReply;
    bool m_hasDigest = false;
    QByteArray m_sha256;
    QByteArray m_exchange;
};

} // namespace kvx
