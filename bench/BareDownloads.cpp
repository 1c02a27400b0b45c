#include "BareDownloads.h"

#include "Stand.h"

#include <KVXCommon/KVXZipFile.h>
#include <QDir>
#include <QFile>
#include <QtEndian>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

namespace kvx::bench {

namespace {

std::size_t appendTo(char *bytes, std::size_t size, std::size_t count, void *body)
{
    static_cast<QByteArray *>(body)->append(bytes, static_cast<int>(size * count));
    return size * count;
}

/// The one entry of an archive, by the sizes in its local header.
QByteArray unpacked(const QByteArray &archive)
{
    const auto *at = reinterpret_cast<const uchar *>(archive.constData());
    require(archive.size() > 30, QStringLiteral("no archive came"));
    const int begin
        = 30 + qFromLittleEndian<quint16>(at + 26) + qFromLittleEndian<quint16>(at + 28);
    QByteArray log(static_cast<int>(qFromLittleEndian<quint32>(at + 22)), Qt::Uninitialized);
    z_stream stream = {};
    stream.next_in = const_cast<uchar *>(at) + begin;
    stream.avail_in = static_cast<uInt>(archive.size() - begin);
    stream.next_out = reinterpret_cast<uchar *>(log.data());
    stream.avail_out = static_cast<uInt>(log.size());
    inflateInit2(&stream, -MAX_WBITS);
    const int result = inflate(&stream, Z_FINISH);
    inflateEnd(&stream);
    require(result == Z_STREAM_END, QStringLiteral("the archive cannot be unpacked"));
    return log;
}

/// Written, read and removed where downloads lie.
QByteArray throughFile(const QByteArray &bytes)
{
    static const QByteArray folder = QFile::encodeName(QDir::tempPath());
    QByteArray path = folder + "/bare-XXXXXX";
    const int file = ::mkostemp(path.data(), O_CLOEXEC);
    require(file >= 0, QString::fromUtf8(path));
    QByteArray read(bytes.size(), Qt::Uninitialized);
    const auto size = static_cast<std::size_t>(bytes.size());
    const bool whole = ::write(file, bytes.constData(), size) == bytes.size()
        && ::pread(file, read.data(), size, 0) == bytes.size();
    ::close(file);
    ::unlink(path.constData());
    require(whole, QString::fromUtf8(path));
    return read;
}

} // namespace

BareDownloads::BareDownloads(const Stand &stand, const QStringList &logs)
    : m_sink(stand.path(QString()))
    , m_count(logs.size())
    , m_curl(curl_easy_init())
{
    QStringList archives;
    for (const QString &log : logs) {
        archives.append(log + QLatin1String(".zip"));
        require(KVXZipFile::compressFiles(
                    archives.last(), { { QStringLiteral("log"), log } }, QString()),
            archives.last());
    }
    m_sink.offer(archives);
}

BareDownloads::~BareDownloads()
{
    curl_easy_cleanup(m_curl);
}

QList<QByteArray> BareDownloads::synchronise(int first, int count)
{
    QList<QByteArray> logs;
    ask("version");
    for (int i = first; i < first + count; ++i)
        logs.append(throughFile(unpacked(throughFile(ask("file/" + QByteArray::number(i))))));
    ask("items");
    ask("chapters");
    return logs;
}

QByteArray BareDownloads::ask(const QByteArray &path)
{
    const QByteArray url = "http://" + m_sink.address().toLatin1() + '/' + path;
    QByteArray body;
    curl_easy_setopt(m_curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(m_curl, CURLOPT_POSTFIELDS, "");
    curl_easy_setopt(m_curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(m_curl, CURLOPT_WRITEFUNCTION, &appendTo);
    curl_easy_setopt(m_curl, CURLOPT_WRITEDATA, &body);
    require(curl_easy_perform(m_curl) == CURLE_OK, QString::fromLatin1(url));
    return body;
}

} // namespace kvx::bench
