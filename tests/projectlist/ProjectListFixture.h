#pragma once

#include "projectlist/KVXCWProjectListImpl.h"
#include "support/ManagerTest.h"

#include <KVXCollaboration/KVXCWProjectData.h>
#include <QJsonArray>
#include <functional>
#include <vector>

namespace kvx::test {

inline QStringList texts(std::initializer_list<const char *> list)
{
    QStringList result;
    for (const char *utf8 : list)
        result.append(QString::fromUtf8(utf8));
    return result;
}

/// A record in the server's form; extra keys are laid over it.
QJsonObject project(
    const char *guid, const char *name, const char *type = "Tender", const QJsonObject &extra = {});
/// A "users" element with the four levels.
QJsonObject collaborator(
    const char *email, int projectRW, int money = 1, int addendum = 1, int report = 1);
QJsonObject withUsers(const QList<QJsonObject> &users);
/// A project list notification.
QJsonObject message(
    const char *command, const QJsonValue &content, const char *from = "ben@example.com");

/// A command, the service that it asks and whether it succeeded.
struct Command {
    const char *service;
    std::function<bool(KVXCWProjectListImpl &)> run;
};
/// All of them, on the listed project "{a}" and the new one "{n}".
const std::vector<Command> &commands();

/// Counts what the list asks of the synchronisers.
class FakeSynchronizer : public KVXCWProjectData {
public:
    static int created;
    static int destroyed;
    static QStringList synced; ///< GUIDs, in call order
    static std::function<void()> duringSync;
    static std::function<void()> atCreation;
    static std::function<void()> atEnd;
    static void create(KVXCWProjectData **slot) { *slot = new FakeSynchronizer; }

    FakeSynchronizer();
    ~FakeSynchronizer() override;
    void setProjectGuid(const QString &guid) override { m_guid = guid; }
    void setProjectDatabase(IKVXProjectDatabase *) override { }
    QString projectGuid() const override { return m_guid; }
    ErrorCode saveProject(IKVXCWProjectAdditionalInfo *) override { return Success; }
    ErrorCode syncLogs() override;

private:
    QString m_guid;
};

/// A host with a project list; its signals are noted as "name" or "name argument argument".
class ProjectListTest : public ManagerTest {
protected:
    ProjectListTest();
    ~ProjectListTest() override;

    /// Makes the manager; its first synchronisation brings these records. Requests, signals and
    /// log lines of the beginning are dropped.
    void makeList(const QList<QJsonObject> &projects);
    void answerList(const QList<QJsonObject> &projects);
    /// Opens it and drops the request.
    void open(const char *guid);

    KVXProjectInfo *record(const char *guid) { return list->getProjectInfoByGUID(text(guid)); }
    int recordCount() const;

    KVXCWProjectListImpl *list = nullptr; ///< owned by the registry

private:
    void recordSignals();
};

} // namespace kvx::test
