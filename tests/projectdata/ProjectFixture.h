#pragma once

#include "projectdata/KVXCWIDManagerImpl.h"
#include "projectdata/KVXCWProjectDataImpl.h"
#include "projectdata/ProjectServer.h"
#include "support/FakeHost.h"

#include <KVXCollaboration/IKVXCWProjectAdditionalInfo.h>
#include <KVXCollaboration/IKVXProjectDatabase.h>
#include <KVXSQLite/IKVXSQLiteModel.h>
#include <QMap>
#include <QPointer>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

namespace kvx::test {

/// A project database whose outcome the test sets. Logs are loaded for real before they come here.
class FakeDatabase : public IKVXProjectDatabase, public IKVXSQLiteModel {
public:
    QList<int> results; ///< of the next executions; then 1
    std::function<void()> onExecute;
    int executions = 0;
    QList<int> modes;

    QMap<QString, int> highest; ///< table to the number that highestId answers
    QStringList scanned; ///< "table min max" of each question
    std::function<void()> onTables;

    IKVXSQLiteModel *model() override { return this; }
    int execute(IKVXSQLiteModelCommandFile *commandFile, int mode) override;
    QStringList tables() override;
    int highestId(const QString &table, int min, int max) override;
};

/// What a host contributes to a save.
class FakeInfo : public IKVXCWProjectAdditionalInfo {
public:
    QMap<QString, QVariant> map;
    bool ready = true;
    int readyCalls = 0;
    int infoCalls = 0;
    std::function<void()> onReady;
    std::function<void()> onInfo;

    void additionalInfo(QMap<QString, QVariant> &info) override;
    bool isReady() override;
};

/// One open project with its two managers in the registry, a server, a database and the files that
/// a save publishes.
class ProjectFixture : public testing::Test {
protected:
    ProjectFixture();

    /// Opens the project at the server's version; the log and the request list start empty.
    void open(int serverVersion);
    /// Publishes logs up to the version; each holds a real, empty command file.
    void publishLogs(int lastVersion);
    /// What "the project is closed" means for the managers: both are deleted at once.
    void close();

    /// The log texts since the last call, each as "INFO text" or "WARN text", of one source file.
    QStringList takeLog(const char *source);
    /// Services of the requests since the last call, "loglock" with "+" or "-" for its purpose,
    /// uploads and downloads with the server name.
    QStringList takeSteps();
    QList<QJsonObject> takeRequests(const char *service);
    /// Names in the temporary directory but for the fixture's own folder.
    QStringList temporaryEntries() const;

    static const QString guid;
    FakeHost host;
    ProjectServer server { host.network, guid };
    FakeDatabase database;
    FakeInfo info;
    QTemporaryDir folder;
    QString commandFile; ///< a loadable change log
    QString projectFile;
    QPointer<KVXCWProjectDataImpl> project; ///< owned by the registry
    QPointer<KVXCWIDManagerImpl> items; ///< owned by the registry
    int changes = 0; ///< emissions of the ID manager's changed()
    QList<int> pauses;
};

/// An ID manager of another make.
class ForeignIDManager : public KVXCWIDManager {
public:
    bool statesResult = true;

    void setProjectGuid(const QString &) override { }
    bool attachDatabase(IKVXProjectDatabase *) override { return true; }
    int newItemId(IKVXProjectDatabase *) override { return -1; }
    bool checkOut(int, const QList<int> &) override { return true; }
    bool checkOut(int, int, KVXItemCheckState &) override { return true; }
    bool checkIn(int, const QList<int> &) override { return true; }
    bool checkIn(int, int) override { return true; }
    int checkState(int, int, KVXItemCheckState &) override { return 0; }
    int ensureCheckedOut(int, int, bool) override { return 0; }
    bool checkInAll() override { return true; }
    bool syncCheckOutStates() override { return statesResult; }
    int itemState(int, int) const override { return 0; }
    bool registerCreatedItems(int, const QList<int> &) override { return true; }
    void rescan() override { }
    void setProjectDatabase(IKVXProjectDatabase *) override { }
    QString projectGuid() const override { return {}; }
};

} // namespace kvx::test
