#include "Memory.h"
#include "Report.h"
#include "Sink.h"
#include "Stand.h"
#include "Workloads.h"

#include <QFile>
#include <QFileInfo>
#include <cstdio>
#include <curl/curl.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <zlib.h>

namespace kvx::bench {

namespace {

constexpr int changedRows = 1'000;

/// The least that a save can come to: packs the log, takes the project file's digest, sends both
/// to a server that syncs them.
class BareSave {
public:
    explicit BareSave(const Stand &stand)
        : m_sink(stand.path(QString()))
        , m_archive(stand.path(QStringLiteral("bare.z")))
        , m_curl(curl_easy_init())
    {
        m_url = QStringLiteral("http://%1/store").arg(m_sink.address()).toLatin1();
    }
    ~BareSave()
    {
        curl_slist_free_all(m_headers);
        curl_easy_cleanup(m_curl);
    }
    BareSave(const BareSave &) = delete;
    BareSave &operator=(const BareSave &) = delete;

    void sendLog(const QString &log)
    {
        pack(log);
        send(m_archive);
    }
    void sendProjectFile(const QString &projectFile)
    {
        digest(projectFile);
        send(projectFile);
    }

private:
    void pack(const QString &log);
    static void digest(const QString &path);
    void send(const QString &path);

    Sink m_sink;
    QString m_archive;
    CURL *m_curl;
    curl_slist *m_headers = curl_slist_append(nullptr, "Expect:");
    QByteArray m_url;
};

void BareSave::pack(const QString &log)
{
    QFile file(log);
    QFile archive(m_archive);
    require(file.open(QIODevice::ReadOnly) && archive.open(QIODevice::WriteOnly),
        QStringLiteral("the log cannot be read"));
    const QByteArray bytes = file.readAll();
    uLongf size = compressBound(static_cast<uLong>(bytes.size()));
    QByteArray packed(static_cast<int>(size), Qt::Uninitialized);
    compress2(reinterpret_cast<Bytef *>(packed.data()), &size,
        reinterpret_cast<const Bytef *>(bytes.constData()), static_cast<uLong>(bytes.size()), 6);
    archive.write(packed.constData(), static_cast<qint64>(size));
}

void BareSave::digest(const QString &path)
{
    QFile file(path);
    require(file.open(QIODevice::ReadOnly), file.errorString());
    const auto size = static_cast<std::size_t>(file.size());
    void *bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file.handle(), 0);
    unsigned char result[EVP_MAX_MD_SIZE];
    require(
        bytes != MAP_FAILED && EVP_Digest(bytes, size, result, nullptr, EVP_md5(), nullptr) == 1,
        QStringLiteral("no digest"));
    munmap(bytes, size);
}

void BareSave::send(const QString &path)
{
    std::FILE *file = std::fopen(QFile::encodeName(path).constData(), "rb");
    require(file, path);
    curl_easy_setopt(m_curl, CURLOPT_URL, m_url.constData());
    curl_easy_setopt(m_curl, CURLOPT_POST, 1L);
    curl_easy_setopt(m_curl, CURLOPT_HTTPHEADER, m_headers);
    curl_easy_setopt(m_curl, CURLOPT_UPLOAD_BUFFERSIZE, 512L * 1024);
    curl_easy_setopt(m_curl, CURLOPT_READDATA, file);
    curl_easy_setopt(
        m_curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(QFileInfo(path).size()));
    curl_easy_setopt(
        m_curl, CURLOPT_WRITEFUNCTION,
        +[](char *, std::size_t size, std::size_t count, void *) { return size * count; });
    const CURLcode code = curl_easy_perform(m_curl);
    std::fclose(file);
    require(code == CURLE_OK, QLatin1String(curl_easy_strerror(code)));
}

struct SaveTimes {
    double logFloor;
    double fileFloor; ///< the project file's digest and its way
    double ours;
    double memory;
};

SaveTimes measureSize(Stand &stand, Report &report, const TenderSize &size)
{
    QString base;
    const QString name = QStringLiteral("save-") + QLatin1String(size.name);
    stand.share(name, size, &base);
    host::OpenProject::Failure failure;
    host::OpenProject *project = stand.client().use(name, &failure);
    require(project, failure.text);
    KVXProjectDatabase &database = project->database();
    report.note(QStringLiteral("size %1: %2 items, %3 kB")
                    .arg(QLatin1String(size.name), QString::number(size.items),
                        QString::number(QFileInfo(base).size() / 1000)));

    // A first save, so that nothing is done for the first time below; its log serves the floor.
    const QString log = stand.path(name + QLatin1String(".log"));
    changeRows(database, 1, changedRows, 0);
    require(database.prepareSave(log, stand.email()) && project->save().published,
        database.errorText());

    BareSave bare(stand);
    std::vector<double> logFloor;
    std::vector<double> fileFloor;
    std::vector<double> ours;
    for (int i = 1; i <= stand.repeats(); ++i) {
        changeRows(database, 1 + i * 37 % (size.items - changedRows + 1), changedRows, i);
        logFloor.push_back(milliseconds([&] { bare.sendLog(log); }));
        fileFloor.push_back(milliseconds([&] { bare.sendProjectFile(database.path()); }));
        ours.push_back(milliseconds([&] {
            const host::OpenProject::SaveResult result = project->save();
            require(result.published, result.text);
        }));
    }
    // Apart from the timed ones: a heap that was trimmed costs time to grow again.
    changeRows(database, 1, changedRows, stand.repeats() + 1);
    const MemoryPeak peak;
    require(project->save().published, QStringLiteral("the last save failed"));
    const double memory = peak.growth();
    const QString guid = project->guid();
    stand.client().close(guid);
    return { median(logFloor), median(fileFloor), median(ours), memory };
}

void measureWholeSave(Stand &stand, Report &report, const TenderSize &size)
{
    const SaveTimes times = measureSize(stand, report, size);
    const QString line = QStringLiteral("save 1,000 rows, size %1").arg(QLatin1String(size.name));
    report.addRatio(line, times.logFloor + times.fileFloor, times.ours, 1.3);
    report.add({ line + QStringLiteral(", memory"), 0, times.memory,
        QStringLiteral("at most 32 MB"), times.memory <= 32, QStringLiteral("MB") });
}

} // namespace

void measureSave(Stand &stand, Report &report)
{
    const SaveTimes bare = measureSize(stand, report, bareTender);
    report.addRatio(QStringLiteral("save 1,000 rows, all but the project file"), bare.logFloor,
        bare.ours - bare.fileFloor, 2);
    measureWholeSave(stand, report, smallTender);
    measureWholeSave(stand, report, mediumTender);
}

void measureLargeSave(Stand &stand, Report &report)
{
    measureWholeSave(stand, report, largeTender);
}

} // namespace kvx::bench
