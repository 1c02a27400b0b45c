#pragma once

#include "Sink.h"

#include <QList>
#include <curl/curl.h>

namespace kvx::bench {

class Stand;

/// The least that fetching change logs can come to: one request for each over one connection of
/// bare libcurl, from a server that parses nothing. As the interfaces have it, the archive and what
/// it holds are a file each, for a moment.
class BareDownloads {
public:
    /// Packs the logs.
    BareDownloads(const Stand &stand, const QStringList &logs);
    ~BareDownloads();
    BareDownloads(const BareDownloads &) = delete;
    BareDownloads &operator=(const BareDownloads &) = delete;

    /// What a synchronisation asks: the version, then each log, then the check-outs of the two
    /// modules. The content of the logs in their order.
    QList<QByteArray> synchronise() { return synchronise(0, m_count); }
    QList<QByteArray> synchronise(int first, int count);

private:
    QByteArray ask(const QByteArray &path);

    Sink m_sink;
    int m_count;
    CURL *m_curl;
};

} // namespace kvx::bench
