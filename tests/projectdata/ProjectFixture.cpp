#include "projectdata/ProjectFixture.h"

#include "resources/KVXCWFileServiceImpl.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXSQLite/KVXProjectDatabase.h>
#include <QDir>

namespace kvx::test {

const QString ProjectFixture::guid = QStringLiteral("{5b0a2f4e-93b7-4d0e-8a5c-2f1d6c7e8b90}");

int FakeDatabase::execute(IKVXSQLiteModelCommandFile *, int mode)
{
    ++executions;
    modes.append(mode);
    if (onExecute)
        onExecute();
    return results.isEmpty() ? 1 : results.takeFirst();
}

QStringList FakeDatabase::tables()
{
    if (onTables)
        onTables();
    return highest.keys();
}

int FakeDatabase::highestId(const QString &table, int min, int max)
{
    scanned.append(
        QStringLiteral("%1 %2 %3").arg(table, QString::number(min), QString::number(max)));
    return highest.value(table, -1);
}

void FakeInfo::additionalInfo(QMap<QString, QVariant> &info)
{
    ++infoCalls;
    info = map;
    if (onInfo)
        onInfo();
}

bool FakeInfo::isReady()
{
    ++readyCalls;
    if (onReady)
        onReady();
    return ready;
}

ProjectFixture::ProjectFixture()
    : commandFile(folder.filePath(QStringLiteral("changes")))
    , projectFile(folder.filePath(QStringLiteral("Harbour.KVX")))
{
    QString error;
    const auto file = KVXProjectDatabase::create(projectFile, guid,
        QStringLiteral("CREATE TABLE item(id INTEGER PRIMARY KEY, text TEXT)"), &error);
    if (!file || !file->sealBase()
        || !file->prepareSave(commandFile, QStringLiteral("anna@example.com")) || !file->close())
        ADD_FAILURE() << error.toStdString();
    info.map = { { QStringLiteral("ProjectLogFile"), commandFile },
        { QStringLiteral("ProjectFile"), projectFile },
        { QStringLiteral("Amount"), QStringLiteral("1234.50") } };

    KVXCollaborator *registry = KVXCollaborator::getInstance();
    registry->setFileService(new KVXCWFileServiceImpl);
}

void ProjectFixture::open(int serverVersion)
{
    server.version = serverVersion;
    KVXCollaborator *registry = KVXCollaborator::getInstance();
    project = new KVXCWProjectDataImpl;
    registry->setProjectDataSynchronizer(guid, project);
    project->setProjectGuid(guid);
    project->setProjectDatabase(&database);
    project->setPause([this](int seconds) { pauses.append(seconds); });
    items = new KVXCWIDManagerImpl;
    registry->setIdManager(guid, items);
    items->setProjectGuid(guid);
    QObject::connect(items, &KVXCWIDManager::changed, items, [this] { ++changes; });
    host.network.takeRequests();
    host.takeLog();
}

void ProjectFixture::publishLogs(int lastVersion)
{
    for (int version = server.version + 1; version <= lastVersion; ++version)
        server.publishLog(version, commandFile);
}

void ProjectFixture::close()
{
    KVXCollaborator::getInstance()->reset(true, guid);
}

QStringList ProjectFixture::takeLog(const char *source)
{
    QStringList lines;
    for (const LogRecord &record : host.takeLog()) {
        if (record.source == QLatin1String(source)) {
            const char *level = record.level == 20000 ? "INFO " : "WARN ";
            lines.append(QLatin1String(level) + record.text);
        }
    }
    return lines;
}

QStringList ProjectFixture::takeSteps()
{
    QStringList steps;
    for (const QJsonObject &request : host.network.takeRequests()) {
        QString step = request.value(QLatin1String("service")).toString();
        if (step == QLatin1String("loglock"))
            step += request.value(QLatin1String("ReleaseLock")).toBool() ? QLatin1Char('-')
                                                                         : QLatin1Char('+');
        if (step == QLatin1String("upload") || step == QLatin1String("download"))
            step += QLatin1Char(' ')
                + request.value(QLatin1String("FileName")).toString().mid(guid.size());
        steps.append(step);
    }
    return steps;
}

QList<QJsonObject> ProjectFixture::takeRequests(const char *service)
{
    QList<QJsonObject> requests;
    for (const QJsonObject &request : host.network.takeRequests()) {
        if (request.value(QLatin1String("service")).toString() == QLatin1String(service))
            requests.append(request);
    }
    return requests;
}

QStringList ProjectFixture::temporaryEntries() const
{
    const QDir directory(QDir::tempPath());
    QStringList names
        = directory.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    names.removeAll(QDir(folder.path()).dirName());
    return names;
}

} // namespace kvx::test
