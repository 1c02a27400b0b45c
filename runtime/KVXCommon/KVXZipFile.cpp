#include <FailPoint.h>
#include <KVXCommon/KVXZipFile.h>

#include "ZipDirectory.h"
#include "ZipEntryName.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>
#include <QStringList>
#include <memory>
#include <zip.h>

namespace kvx {

namespace {

const int MostEntries = 16;
const qint64 MostBytes = 256LL * 1024 * 1024;
const qint64 HighestRatio = 200;
const int ZipChunk = 256 * 1024;
const quint32 UnixFileType = 0170000;
const quint32 UnixRegularFile = 0100000;
const quint32 DosFolder = 0x10;

struct DiscardArchive {
    void operator()(zip_t *archive) const { zip_discard(archive); }
};
using ZipArchive = std::unique_ptr<zip_t, DiscardArchive>;

struct CloseEntry {
    void operator()(zip_file_t *file) const { zip_fclose(file); }
};
using ZipEntryReader = std::unique_ptr<zip_file_t, CloseEntry>;

ZipArchive openArchive(const QString &path, int flags)
{
    int error = 0;
    return ZipArchive(zip_open(QFile::encodeName(path).constData(), flags, &error));
}

bool isOverpacked(qint64 size, qint64 packedSize)
{
    return size > HighestRatio * packedSize;
}

bool addEntry(zip_t *archive, const QString &name, const QString &path, const QByteArray &password,
    zip_int32_t method)
{
    if (!isSafeEntryName(name) || !QFileInfo(path).isFile())
        return false;
    zip_source_t *source = zip_source_file(archive, QFile::encodeName(path).constData(), 0, 0);
    if (!source)
        return false;
    const zip_int64_t index
        = zip_file_add(archive, name.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
        zip_source_free(source);
        return false;
    }
    // Change logs are numbers for the most part, and those take 3 % more than with the usual 6, in
    // half the time; text takes 7 % more.
    constexpr zip_uint32_t level = 3;
    if (zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), method, level) != 0)
        return false;
    return password.isEmpty()
        || zip_file_set_encryption(
               archive, static_cast<zip_uint64_t>(index), ZIP_EM_AES_256, password.constData())
        == 0;
}

// The library writes no archive without entries; this is what one looks like.
bool writeEmptyArchive(const QString &path)
{
    const QByteArray endRecord = QByteArray("PK\x05\x06", 4) + QByteArray(18, '\0');
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(endRecord) == endRecord.size()
        && file.commit();
}

/// The entries named in `stored` are not deflated.
bool writeEntries(const QString &path, const QMap<QString, QString> &files, const QString &password,
    const QSet<QString> &stored)
{
    // The library writes beside the target and renames when it closes the archive.
    ZipArchive archive = openArchive(path, ZIP_CREATE | ZIP_TRUNCATE);
    if (!archive)
        return false;
    QSet<QString> keys;
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        keys.insert(entryNameKey(file.key()));
        const zip_int32_t method = stored.contains(file.key()) ? ZIP_CM_STORE : ZIP_CM_DEFLATE;
        if (!addEntry(archive.get(), file.key(), file.value(), password.toUtf8(), method))
            return false;
    }
    if (KVX_FAIL_POINT("pack/entries added"))
        return false;
    if (keys.size() != files.size() || zip_close(archive.get()) != 0)
        return false;
    static_cast<void>(archive.release()); // closed and freed
    return true;
}

/// False: the archive just written cannot be read.
bool findOverpacked(const QString &path, QSet<QString> &names)
{
    const ZipArchive archive = openArchive(path, ZIP_RDONLY);
    if (!archive)
        return false;
    const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t stat;
        if (zip_stat_index(archive.get(), static_cast<zip_uint64_t>(i), 0, &stat) != 0)
            return false;
        if (isOverpacked(static_cast<qint64>(stat.size), static_cast<qint64>(stat.comp_size)))
            names.insert(QString::fromUtf8(stat.name));
    }
    return true;
}

bool writeArchive(const QString &path, const QMap<QString, QString> &files, const QString &password)
{
    if (files.isEmpty())
        return writeEmptyArchive(path);
    // What everybody refuses to unpack must not be packed. How far an entry shrinks shows only
    // afterwards; one that shrinks too far is rare, and then stored in a second go.
    QSet<QString> overpacked;
    return writeEntries(path, files, password, {}) && findOverpacked(path, overpacked)
        && (overpacked.isEmpty() || writeEntries(path, files, password, overpacked));
}

bool isPlainFile(const ZipEntry &entry)
{
    const quint32 fileType = entry.externalAttributes >> 16 & UnixFileType;
    return (fileType == 0 || fileType == UnixRegularFile) && !(entry.externalAttributes & DosFolder)
        && !entry.name.contains('\0');
}

/// Unpacks one checked archive; what it made is removed again unless it was kept.
class Extraction {
public:
    explicit Extraction(const QString &directory)
        : m_directory(directory)
    {
    }
    ~Extraction();

    bool run(const QString &archivePath, const QByteArray &password);
    QMap<QString, QString> keep();

private:
    bool checkSizes(qint64 archiveSize) const;
    bool readNames();
    bool makeDirectory();
    bool writeEntry(zip_uint64_t index, QFile &target) const;

    const QString m_directory;
    ZipArchive m_archive;
    QVector<ZipEntry> m_entries;
    QStringList m_names;
    QStringList m_madeDirectories;
    QMap<QString, QString> m_made;
};

Extraction::~Extraction()
{
    for (const QString &path : qAsConst(m_made))
        QFile::remove(path);
    while (!m_madeDirectories.isEmpty())
        QDir().rmdir(m_madeDirectories.takeLast());
}

bool Extraction::run(const QString &archivePath, const QByteArray &password)
{
    QFile file(archivePath);
    if (!file.open(QIODevice::ReadOnly) || !readZipDirectory(file, MostEntries, m_entries)
        || !checkSizes(file.size()))
        return false;
    m_archive = openArchive(archivePath, ZIP_RDONLY);
    if (!m_archive || !readNames())
        return false;
    if (!password.isEmpty() && zip_set_default_password(m_archive.get(), password.constData()) != 0)
        return false;
    if (!makeDirectory())
        return false;
    for (int i = 0; i < m_names.size(); ++i) {
        QFile target(QDir(m_directory).filePath(m_names[i]));
        // Never an existing file and never through a link.
        if (!target.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
            return false;
        m_made.insert(m_names[i], target.fileName());
        if (KVX_FAIL_POINT("unpack/entry opened"))
            return false;
        if (!writeEntry(static_cast<zip_uint64_t>(i), target))
            return false;
    }
    return true;
}

bool Extraction::checkSizes(qint64 archiveSize) const
{
    qint64 total = 0;
    for (const ZipEntry &entry : m_entries) {
        const bool known = entry.size <= MostBytes && entry.packedSize <= archiveSize;
        if (!known || !isPlainFile(entry) || isOverpacked(entry.size, entry.packedSize))
            return false;
        total += entry.size;
    }
    return total <= MostBytes;
}

bool Extraction::readNames()
{
    if (zip_get_num_entries(m_archive.get(), 0) != m_entries.size())
        return false;
    QSet<QString> keys;
    for (int i = 0; i < m_entries.size(); ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        const char *raw = zip_get_name(m_archive.get(), index, ZIP_FL_ENC_RAW);
        const char *text = zip_get_name(m_archive.get(), index, ZIP_FL_ENC_GUESS);
        zip_stat_t stat;
        if (!raw || !text || m_entries[i].name != raw
            || zip_stat_index(m_archive.get(), index, 0, &stat) != 0
            || (stat.comp_method != ZIP_CM_STORE && stat.comp_method != ZIP_CM_DEFLATE)
            || stat.encryption_method == ZIP_EM_UNKNOWN)
            return false;
        const QString name = QString::fromUtf8(text);
        if (!isSafeEntryName(name))
            return false;
        keys.insert(entryNameKey(name));
        m_names.append(name);
    }
    return keys.size() == m_names.size();
}

bool Extraction::makeDirectory()
{
    QStringList missing;
    QString path = QDir::cleanPath(QFileInfo(m_directory).absoluteFilePath());
    while (!QFileInfo::exists(path)) {
        missing.prepend(path);
        path = QFileInfo(path).path();
    }
    for (const QString &directory : qAsConst(missing)) {
        if (!QDir().mkdir(directory))
            return false;
        m_madeDirectories.append(directory);
        QFile::setPermissions(directory, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    const QFileInfo made(m_directory);
    return made.isDir() && !made.isSymLink();
}

bool Extraction::writeEntry(zip_uint64_t index, QFile &target) const
{
    const ZipEntryReader reader(zip_fopen_index(m_archive.get(), index, 0));
    if (!reader)
        return false;
    const std::unique_ptr<char[]> chunk(new char[ZipChunk]);
    qint64 left = m_entries[static_cast<int>(index)].size;
    for (;;) {
        // The last read returns 0 only after checksum or authentication code were right.
        const zip_int64_t got = zip_fread(reader.get(), chunk.get(), ZipChunk);
        if (got == 0)
            return left == 0;
        if (got < 0 || got > left || target.write(chunk.get(), got) != got)
            return false;
        left -= got;
    }
}

QMap<QString, QString> Extraction::keep()
{
    m_madeDirectories.clear();
    QMap<QString, QString> made;
    made.swap(m_made);
    return made;
}

} // namespace

} // namespace kvx

bool KVXZipFile::compressFiles(
    const QString &archivePath, const QMap<QString, QString> &files, const QString &password)
{
    if (kvx::writeArchive(archivePath, files, password))
        return true;
    QFile::remove(archivePath);
    return false;
}

bool KVXZipFile::extractFiles(const QString &archivePath, const QString &directory,
    QMap<QString, QString> &files, const QString &password)
{
    files.clear();
    kvx::Extraction extraction(directory);
    if (directory.isEmpty() || !extraction.run(archivePath, password.toUtf8()))
        return false;
    files = extraction.keep();
    return true;
}
