#include "../Require.h"
#include "services/LogArchive.h"

#include <KVXCommon/KVXZipFile.h>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <cstdint>

using kvx::test::require;

namespace {

const char *const entryName = "log";
constexpr qint64 mostBytes = 256LL << 20;

struct Place {
    QTemporaryDir folder;
    const QString archive = folder.filePath(QStringLiteral("inner/a.zip"));
    const QString target = folder.filePath(QStringLiteral("inner/out"));

    Place() { require(QDir(folder.path()).mkdir(QStringLiteral("inner")), "there is a folder"); }
    QStringList entries(const QString &path) const
    {
        return QDir(path).entryList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
};

/// What came out stays in its folder and within its limits; nothing is left of what was refused.
bool unpack(const Place &place, const QString &password)
{
    QMap<QString, QString> files;
    const bool unpacked = KVXZipFile::extractFiles(place.archive, place.target, files, password);
    const QStringList made = place.entries(place.target);
    require(unpacked || (files.isEmpty() && !QFileInfo::exists(place.target)),
        "nothing is left of an archive that was refused");
    require(files.size() <= 16 && made.size() == files.size(), "what was told is what is there");
    qint64 total = 0;
    for (auto file = files.cbegin(); file != files.cend(); ++file) {
        const QFileInfo info(file.value());
        require(info.isFile() && !info.isSymLink(), "an entry is a plain file");
        require(info.absolutePath() == place.target && info.fileName() == file.key(),
            "an entry stays in its folder");
        total += info.size();
    }
    require(total <= mostBytes, "not more than is allowed");
    require(place.entries(place.folder.path()).size() == 1, "nothing beside the folder");
    QDir(place.target).removeRecursively();
    return unpacked && files.contains(QLatin1String(entryName)) && files.size() == 1;
}

} // namespace

/// Client and server judge an archive alike: a log that the server takes and a client cannot unpack
/// would stop every colleague.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const Place place;
    {
        QFile file(place.archive);
        require(file.open(QIODevice::WriteOnly), "the archive is written");
        file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size));
    }
    const auto fault = kvx::server::faultOfLogArchive(place.archive.toStdString(), entryName);
    const bool unpacked = unpack(place, QString());
    unpack(place, QStringLiteral("word"));
    require(fault || unpacked, "clients unpack what the server accepts");
    return 0;
}
