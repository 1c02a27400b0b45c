#pragma once

#include "projectlist/ListLock.h"

#include <KVXCollaboration/KVXCWProjectList.h>
#include <QMap>
#include <QMetaObject>
#include <memory>

/// The shared project list, kept in memory and filled from the server when the manager is made.
/// Host thread. Every change of the list is made under its write lock; a full synchronisation and
/// the closing of a project hold it throughout, their signals included.
class KVXCWProjectListImpl : public KVXCWProjectList {
    Q_OBJECT
public:
    /// Listens to the messager: its thread waits until a notification has been applied.
    KVXCWProjectListImpl();
    ~KVXCWProjectListImpl() override;

    QString genProjectName() override;
    /// True when the new project was also fetched into the list.
    bool newProject(TProjectsType type, const QString &name, const QString &guid,
        double *statusCode = nullptr) override;
    bool addendumProject(
        TProjectsType type, const KVXProjectInfo &source, double *statusCode = nullptr) override;
    /// Asks the server; the list follows with the notification.
    bool removeProject(const QString &guid) override;
    bool updateProject(KVXProjectInfo *info) override;
    bool renameProject(const QString &oldName, const QString &newName, const QString &guid,
        double *statusCode = nullptr) override;
    /// Looks in the list, then asks the server.
    bool existsProject(const QString &name) override;
    int openProject(const QString &guid) override;
    /// Closes the project here whatever the server answers.
    bool closeProject(const QString &guid) override;
    int lockProject(const QString &guid, bool releaseLock) override;
    QStringList onlineEditors(const QString &guid) override;
    bool updateProjectAdditionalInfo(const QString &guid, const QJsonObject &info) override;
    /// Deletes all records; projects that are open are pointed at their new ones.
    bool syncProjectList() override;
    bool clearProject(const QString &guid) override;
    QString genProjectNameEx() override;
    bool newProjectGroup(TProjectsType type, const QString &name) override;
    bool removeProjectGroup(const QString &name) override;
    bool renameProjectGroup(const QString &oldName, const QString &newName) override;
    bool existsProjectGroup(const QString &name) override;

    /// Owned by the caller.
    KVXProjectInfo *readProjectInfo(const QJsonObject &object) const;
    /// Appends the project as the server has it now, without looking for an older record of it.
    bool fetchProject(const QString &guid);

public Q_SLOTS:
    /// One notification of the server. Lets no exception out.
    void onNotify(const QJsonObject &message);

private:
    struct Notified;

    void append(std::unique_ptr<KVXProjectInfo> record);
    void removeRecord(const QString &guid);
    void attachOpenProjects();

    void applyNotification(const QJsonObject &message, Notified &notified);
    void applySave(const QJsonObject &content, Notified &notified);
    void applyRename(const QJsonObject &content, Notified &notified);
    void applyRemove(const QJsonObject &content, Notified &notified);
    void applyUpdate(const QJsonObject &content, Notified &notified);
    void applyNew(const QJsonObject &message, Notified &notified);
    void applyAdditionalInfo(const QJsonObject &content, Notified &notified);
    void applyPermissions(const QJsonArray &records, Notified &notified);
    void applyPermissions(const QJsonObject &object, Notified &notified);
    void announce(Notified &notified);
    void noteFailure(const QString &what);

    kvx::ListLock m_lock;
    /// GUID to a record of the list; null while the list has none, so that closing the project
    /// still drops its managers.
    QMap<QString, KVXProjectInfo *> m_openProjects;
    QMetaObject::Connection m_notifications;
};
