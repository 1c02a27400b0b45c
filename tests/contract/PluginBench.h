#pragma once

#include "ContractFile.h"
#include "PluginCalls.h"
#include "common/KVXCWCommonImpl.h"
#include "login/KVXCWLoginImpl.h"
#include "projectdata/KVXCWIDManagerImpl.h"
#include "projectdata/KVXCWProjectDataImpl.h"
#include "projectdata/ProjectFixture.h"
#include "projectlist/KVXCWProjectListImpl.h"
#include "resources/KVXCWFileServiceImpl.h"
#include "resources/KVXGlobalLockMgrImpl.h"
#include "resources/KVXReportTemplateMgrImpl.h"
#include "support/FakeHost.h"
#include "users/KVXCWUserImpl.h"

#include <QJsonArray>
#include <QMap>
#include <QTemporaryDir>
#include <functional>
#include <memory>

namespace kvx::test {

/// A project database without content, a change log of it, and the managers under test.
class PluginBench {
public:
    explicit PluginBench(const Exchange &exchange);

    FakeDatabase database; // outlives the managers, which the host's registry destroys
    FakeInfo info;
    FakeHost host;
    QJsonArray arguments;

    QString text(int i) const { return arguments.at(i).toString(); }
    int number(int i) const { return arguments.at(i).toInt(); }
    bool flag(int i) const { return arguments.at(i).toBool(); }
    TProjectsType kind(int i) const { return static_cast<TProjectsType>(number(i)); }
    QList<int> numbers(int i) const;

    /// The managers are made; from here on the exchange's reply waits for its request.
    void begin();

    KVXCWProjectListImpl &projectList();
    /// The manager of the user whose e-mail is the first argument. Its table is the one that the
    /// exchange's request holds, if any.
    KVXCWUserImpl &users();
    KVXReportTemplateMgrImpl &templates();
    KVXGlobalLockMgrImpl &globalLocks();
    /// Of the user whose e-mail is the first argument.
    KVXCWCommonImpl &common();
    QTime now { 9, 0 }; ///< on the working-time clock

    /// The record of one of the arguments; the bid status is set by hosts and not read from a
    /// record.
    std::unique_ptr<KVXProjectInfo> record(int i);

    KVXCWLoginImpl &login();
    KVXCWFileService &fileService();
    /// The managers of the open project whose GUID is the first argument, at that log version.
    void openProject(int version);

    KVXCWProjectDataImpl &projectData();
    KVXCWIDManagerImpl &idManager();
    QJsonObject itemStates(int moduleType, const QList<int> &ids) const;

    /// A file of the client's with the exchange's content.
    QString localFile() const;

    /// A change log that can be loaded and changes nothing.
    QString changeLog() const;

private:
    /// What the transport does with the body of a download.
    void receive(const QString &path);

    const Exchange &m_exchange;
    const rapidjson::Value &m_call;
    QTemporaryDir m_folder;
    KVXReportTemplateMgrImpl m_templates;
    KVXGlobalLockMgrImpl m_globalLocks;
    KVXCWCommonImpl m_common { [this] { return now; } };
    std::unique_ptr<KVXCWProjectListImpl> m_projectList;
    std::unique_ptr<KVXCWUserImpl> m_users;
    KVXCWProjectDataImpl *m_projectData = nullptr; // owned by the registry
    KVXCWIDManagerImpl *m_idManager = nullptr; // owned by the registry
};

/// What an exchange may call, by name.
using Operations = QMap<QString, std::function<QJsonValue(PluginBench &)>>;

const Operations &projectOperations();
const Operations &resourceOperations();
const Operations &recognitionOperations();

} // namespace kvx::test
