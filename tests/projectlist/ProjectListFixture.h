#pragma once

#include "projectlist/KVXCWProjectListImpl.h"
#include "support/FakeHost.h"

#include <KVXCollaboration/KVXCWProjectData.h>
#include <QJsonArray>
#include <gtest/gtest.h>
#include <ostream>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}

namespace kvx::test {

inline QString text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

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

/// Counts what the list asks of the synchronisers.
class FakeSynchronizer : public KVXCWProjectData {
public:
    static int created;
    static int destroyed;
    static QStringList synced; ///< GUIDs, in call order
    static std::function<void()> duringSync;
    static void create(KVXCWProjectData **slot) { *slot = new FakeSynchronizer; }

    FakeSynchronizer() { ++created; }
    ~FakeSynchronizer() override { ++destroyed; }
    void setProjectGuid(const QString &guid) override { m_guid = guid; }
    void setProjectDatabase(IKVXProjectDatabase *) override { }
    QString projectGuid() const override { return m_guid; }
    ErrorCode saveProject(IKVXCWProjectAdditionalInfo *) override { return Success; }
    ErrorCode syncLogs() override;

private:
    QString m_guid;
};

/// A host with a project list whose signals are recorded in order.
class ProjectListTest : public testing::Test {
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
    /// Delivers the message as the broker does and returns the signals that it led to.
    QStringList notify(const QJsonObject &message);
    /// "name" or "name argument argument", in the order of emission, since the last call.
    QStringList takeSignals();
    /// Texts of the log lines since the last call; each must be an INFO line of the list.
    QStringList takeInfos();

    FakeHost host;
    KVXCWProjectListImpl *list = nullptr; ///< owned by the registry

private:
    void recordSignals();

    QStringList m_signals;
};

} // namespace kvx::test
