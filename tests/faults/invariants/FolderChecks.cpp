#include "FolderChecks.h"

#include "FolderSnapshot.h"

#include <QDateTime>
#include <QDirIterator>
#include <QRegularExpression>

namespace kvx::test {

namespace {

constexpr qint64 oneDay = 24 * 3600; // s

bool isOld(const QFileInfo &file)
{
    return file.lastModified().secsTo(QDateTime::currentDateTime()) > oneDay;
}

/// What a download, a packing or an upload writes before it takes its final name.
bool isTemporaryName(const QString &name)
{
    static const QRegularExpression pattern(
        QStringLiteral("\\.([0-9a-f]{8}|[0-9A-Za-z]{6}|part|tmp)$"));
    return pattern.match(name).hasMatch() && !name.endsWith(QLatin1String(".sqlite"));
}

void checkTemporaries(const QString &folder, bool all, const Report &report)
{
    QDirIterator files(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        files.next();
        if ((all || isTemporaryName(files.fileName())) && isOld(files.fileInfo()))
            report(Invariant::FilesWhole,
                QStringLiteral("%1 is older than a day").arg(files.filePath()));
    }
}

} // namespace

void checkFolders(const RunTraces &traces, const QVector<Event> &events, const Report &report)
{
    if (!traces.data.isEmpty())
        checkTemporaries(traces.data + QLatin1String("/tmp"), true, report);
    for (const QString &folder : traces.temporaries)
        checkTemporaries(folder, true, report);
    for (const QString &home : traces.homes)
        checkTemporaries(home, false, report);
    for (const Event &event : events) {
        if (event.name != QLatin1String("outside"))
            continue;
        for (const QString &path :
            FolderSnapshot::changesSince(event.text("folder"), event.text("snapshot")))
            report(Invariant::NothingOutside, QStringLiteral("%1 was changed").arg(path));
    }
}

} // namespace kvx::test
