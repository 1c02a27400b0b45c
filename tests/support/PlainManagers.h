#pragma once

#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXUser.h>
#include <QStringList>
#include <memory>

namespace kvx::test {

/// A login manager with nothing behind its operations. Base may add to the interface.
template <class Base = KVXCWLogin> class PlainLogin : public Base {
public:
    using Base::Base;
    void searchServer(const QStringList &, int) override { }
    QString serverVersion(const QString &, int) override { return {}; }
    bool ping(const QString &, int) override { return false; }
    void setProxy(int, const QString &, int, const QString &, const QString &) override { }
    void setServer(const QString &, const QString &) override { }
    void setServer(const QString &, const QString &, int, const QString &, int, const QString &,
        const QString &) override
    {
    }
    KVXErrorCode login(const QString &, const QString &, const QString &, const QString &,
        const QString &) override
    {
        return KVXFailed;
    }
    int leftCount() const override { return 0; }
    bool logout(const QString &) override { return false; }
    KVXUser *currentUser() const override { return nullptr; }
    void cancelSearch() override { }
    QString companyAccount() const override { return {}; }
    KVXErrorCode serverLogin(const QString &, const QString &, const QString &, const QString &,
        const QString &) override
    {
        return KVXFailed;
    }
};

/// A login manager whose user is set by the test.
class FakeLogin : public PlainLogin<> {
public:
    std::unique_ptr<KVXUser> user;

    KVXUser *currentUser() const override { return user.get(); }
};

/// A project list with nothing behind its operations.
template <class Base = KVXCWProjectList> class PlainProjectList : public Base {
public:
    using Base::Base;
    QString genProjectName() override { return {}; }
    bool newProject(TProjectsType, const QString &, const QString &, double *) override
    {
        return false;
    }
    bool addendumProject(TProjectsType, const KVXProjectInfo &, double *) override { return false; }
    bool updateProject(KVXProjectInfo *) override { return false; }
    bool renameProject(const QString &, const QString &, const QString &, double *) override
    {
        return false;
    }
    int openProject(const QString &) override { return 0; }
    bool closeProject(const QString &) override { return false; }
    int lockProject(const QString &, bool) override { return 0; }
    QStringList onlineEditors(const QString &) override { return {}; }
    bool updateProjectAdditionalInfo(const QString &, const QJsonObject &) override
    {
        return false;
    }
    bool syncProjectList() override { return false; }
    QString genProjectNameEx() override { return {}; }
    bool newProjectGroup(TProjectsType, const QString &) override { return false; }
    bool removeProjectGroup(const QString &) override { return false; }
    bool renameProjectGroup(const QString &, const QString &) override { return false; }
    bool existsProjectGroup(const QString &) override { return false; }
};

} // namespace kvx::test
