#include "ChangeLogs.h"
#include "PeerServer.h"
#include "Report.h"
#include "Stand.h"
#include "Workloads.h"

#include "KVXSQLite/KVXProjectDatabase.h"

#include <QDir>
#include <QFile>

namespace kvx::bench {

namespace {

constexpr int changedRows = 1'000;

/// A repository with the project file in it, behind its own network server.
class Subversion {
public:
    explicit Subversion(const Stand &stand)
        : m_root(stand.path(QStringLiteral("svn")))
    {
        require(QDir().mkpath(m_root), m_root);
        run(QStringLiteral("svnadmin"), { QStringLiteral("create"), path("repository") });
        QFile access(path("repository/conf/svnserve.conf"));
        require(access.open(QIODevice::WriteOnly)
                && access.write("[general]\nanon-access = write\n") > 0,
            access.fileName());
        access.close();
        m_server = std::make_unique<PeerServer>(QStringLiteral("svnserve"),
            QStringList { QStringLiteral("-d"), QStringLiteral("--foreground"),
                QStringLiteral("--listen-host"), QStringLiteral("127.0.0.1"),
                QStringLiteral("--listen-port"), QStringLiteral("PORT"), QStringLiteral("-r"),
                path("repository") });
        for (const char *copy : { "anna", "ben" })
            svn({ QStringLiteral("checkout"), QStringLiteral("svn://%1/").arg(m_server->address()),
                path(copy) });
    }

    /// Anna's working copy gets that content. The time of her commit.
    double commit(const QString &projectFile)
    {
        const QString file = path("anna/project.kvx");
        const bool isNew = !QFile::exists(file);
        QFile::remove(file);
        require(QFile::copy(projectFile, file), file);
        if (isNew)
            svn({ QStringLiteral("add"), file });
        return milliseconds([&] {
            svn({ QStringLiteral("commit"), QStringLiteral("-m"), QStringLiteral("save"),
                path("anna") });
        });
    }

    /// The time in which Ben's working copy becomes the newest.
    double update()
    {
        return milliseconds([&] { svn({ QStringLiteral("update"), path("ben") }); });
    }

private:
    QString path(const char *name) const { return m_root + QLatin1Char('/') + QLatin1String(name); }
    void svn(QStringList arguments)
    {
        arguments << QStringLiteral("--non-interactive") << QStringLiteral("--config-dir")
                  << path("config");
        run(QStringLiteral("svn"), arguments);
    }
    static void run(const QString &program, const QStringList &arguments)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, arguments);
        require(process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit
                && process.exitCode() == 0,
            program + QLatin1String(": ") + QString::fromLocal8Bit(process.readAll()));
    }

    QString m_root;
    std::unique_ptr<PeerServer> m_server;
};

/// The same edit of 1,000 rows at size M, published by us and committed by Subversion, which gets
/// the very file that we upload.
void measureSubversion(Stand &stand, Report &report)
{
    QString base;
    const QString name = QStringLiteral("peers");
    stand.share(name, mediumTender, &base);
    host::OpenProject::Failure failure;
    host::OpenProject *project = stand.client().use(name, &failure);
    require(project, failure.text);
    KVXProjectDatabase &database = project->database();

    Subversion subversion(stand);
    subversion.commit(base);
    subversion.update();
    std::vector<double> theirSave;
    std::vector<double> ourSave;
    std::vector<double> theirUpdate;
    for (int i = 0; i < stand.repeats(5); ++i) {
        changeRows(database, 1 + i * 37, changedRows, i);
        ourSave.push_back(milliseconds([&] {
            const host::OpenProject::SaveResult result = project->save();
            require(result.published, result.text);
        }));
        theirSave.push_back(subversion.commit(database.path()));
        theirUpdate.push_back(subversion.update());
    }
    stand.client().close(project->guid());
    const double ours = median(ourSave);
    report.add({ QStringLiteral("save 1,000 rows, size M, beside svn commit"), median(theirSave),
        ours, QStringLiteral("a third of Subversion's"), 3 * ours <= median(theirSave) });

    const ChangeLogs logs
        = writeChangeLogs(stand, QStringLiteral("peers-log"), mediumTender, 1, changedRows, { -1 });
    const double catchUp = measureCatchUpByOne(stand, logs);
    report.add({ QStringLiteral("catch-up by 1 log of 1,000 rows, beside svn update"),
        median(theirUpdate), catchUp, QString() });
}

} // namespace

void measurePeers(Stand &stand, Report &report, const QString &nginx)
{
    measureRequestsBeside(stand, report, nginx);
    measureSubversion(stand, report);
}

} // namespace kvx::bench
