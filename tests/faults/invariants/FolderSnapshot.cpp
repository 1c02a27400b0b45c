#include "FolderSnapshot.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <sys/stat.h>

namespace kvx::test {

namespace {

QString stateOf(const QString &path)
{
    struct stat info = {};
    if (lstat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    // A folder's own time changes with what is left out of the picture.
    if (S_ISDIR(info.st_mode))
        return QString::number(info.st_mode, 8);
    return QStringLiteral("%1 %2 %3.%4 %5")
        .arg(QString::number(info.st_mode, 8))
        .arg(info.st_size)
        .arg(info.st_mtim.tv_sec)
        .arg(info.st_mtim.tv_nsec)
        .arg(info.st_ino);
}

QJsonObject stateOfAll(const QString &folder, const QStringList &except)
{
    QJsonObject found;
    QDirIterator entries(
        folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (entries.hasNext()) {
        const QString path = entries.next();
        if (except.contains(path))
            continue;
        found.insert(path, stateOf(path));
        const QFileInfo info(path);
        if (!info.isDir() || info.isSymLink())
            continue;
        const QJsonObject below = stateOfAll(path, except);
        for (auto entry = below.begin(); entry != below.end(); ++entry)
            found.insert(entry.key(), entry.value());
    }
    return found;
}

} // namespace

bool FolderSnapshot::take(const QString &folder, const QStringList &except, const QString &file)
{
    const QJsonObject snapshot { { QStringLiteral("except"), QJsonArray::fromStringList(except) },
        { QStringLiteral("entries"), stateOfAll(folder, except) } };
    QFile target(file);
    return target.open(QIODevice::WriteOnly) && target.write(QJsonDocument(snapshot).toJson()) > 0;
}

QStringList FolderSnapshot::changesSince(const QString &folder, const QString &file)
{
    QFile source(file);
    if (!source.open(QIODevice::ReadOnly))
        return { file };
    const QJsonObject snapshot = QJsonDocument::fromJson(source.readAll()).object();
    QStringList except;
    for (const QJsonValue &path : snapshot.value(QLatin1String("except")).toArray())
        except.append(path.toString());
    const QJsonObject before = snapshot.value(QLatin1String("entries")).toObject();
    const QJsonObject now = stateOfAll(folder, except);
    QStringList changed;
    for (auto entry = before.begin(); entry != before.end(); ++entry) {
        if (now.value(entry.key()) != entry.value())
            changed.append(entry.key());
    }
    for (auto entry = now.begin(); entry != now.end(); ++entry) {
        if (!before.contains(entry.key()))
            changed.append(entry.key());
    }
    return changed;
}

} // namespace kvx::test
