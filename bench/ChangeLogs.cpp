#include "ChangeLogs.h"

#include "KVXSQLite/KVXProjectDatabase.h"
#include "Stand.h"
#include "content/Schema.h"

#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <QFile>

namespace kvx::bench {

namespace {

constexpr int headerSize = 512; // what stands before the changeset, docs/change-logs.md

std::unique_ptr<KVXProjectDatabase> openCopy(const QString &path, const QString &guid)
{
    QString error;
    auto database = KVXProjectDatabase::open(
        path, guid, KVXProjectDatabase::Origin::Local, content::projectSchema(), &error);
    require(database != nullptr, error);
    return database;
}

} // namespace

ChangeLogs writeChangeLogs(Stand &stand, const QString &name, const TenderSize &size, int count,
    int rows, const QList<int> &copies)
{
    ChangeLogs logs;
    logs.rows = rows;
    logs.guid = stand.share(name, size, &logs.base);
    const QString work = stand.path(name + QLatin1String(".work"));
    require(QFile::copy(logs.base, work), work);
    auto database = openCopy(work, logs.guid);
    for (int version = -1; version < count; ++version) {
        if (version >= 0) {
            const QString file = stand.path(QStringLiteral("%1-%2.log").arg(name).arg(version));
            changeRows(*database, 1 + version * rows % (size.items - rows), rows, version);
            require(database->prepareSave(file, stand.email()) && database->published(version),
                database->errorText());
            logs.files.append(file);
        }
        if (!copies.contains(version))
            continue;
        require(database->close(), database->errorText());
        logs.copies[version] = stand.path(QStringLiteral("%1-at-%2").arg(name).arg(version));
        require(QFile::copy(work, logs.copies[version]), work);
        database = openCopy(work, logs.guid);
    }
    return logs;
}

QString openForPublishing(Stand &stand, const ChangeLogs &logs)
{
    QFile file(stand.path(QStringLiteral("placeholder")));
    require(file.open(QIODevice::WriteOnly) && file.write("placeholder") > 0, file.errorString());
    require(KVXCollaborator::getInstance()->projectListManager()->openProject(logs.guid) == 1,
        QStringLiteral("the project cannot be opened"));
    return file.fileName();
}

QByteArray changesetOf(const QString &file)
{
    QFile log(file);
    require(log.open(QIODevice::ReadOnly), log.errorString());
    return log.readAll().mid(headerSize);
}

} // namespace kvx::bench
