#pragma once

#include <KVXCollaboration/KVXProjectInfo.h>
#include <KVXCollaboration/TProjectsType.h>
#include <KVXExport.h>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>

/// The projects that the current user may see, and the commands on them. The list follows the
/// server's notifications, not the commands. Look-ups are exact, first match in kind order and
/// then list order; they take no lock and belong to the manager's thread. Records are owned by
/// the list and valid until the next change of it. The order of the virtual operations is binding.
class KVXCOLLABORATION_API KVXCWProjectList : public QObject {
    Q_OBJECT
public:
    KVXCWProjectList();
    ~KVXCWProjectList() override;

    /// A name that is free on the server; empty on failure.
    virtual QString genProjectName() = 0;
    /// statusCode, where given, receives the raw status whenever the request was made.
    virtual bool newProject(
        TProjectsType type, const QString &name, const QString &guid, double *statusCode = nullptr)
        = 0;
    virtual bool addendumProject(
        TProjectsType type, const KVXProjectInfo &source, double *statusCode = nullptr)
        = 0;
    /// This class: deletes the first record of the GUID; true when there was one.
    virtual bool removeProject(const QString &guid);
    virtual bool updateProject(KVXProjectInfo *info) = 0;
    virtual bool renameProject(const QString &oldName, const QString &newName, const QString &guid,
        double *statusCode = nullptr)
        = 0;
    /// This class: looks in the list only.
    virtual bool existsProject(const QString &name);
    /// The server's status code.
    virtual int openProject(const QString &guid) = 0;
    virtual bool closeProject(const QString &guid) = 0;
    /// The server's status code; 0 also when the request failed.
    virtual int lockProject(const QString &guid, bool releaseLock) = 0;
    /// Names of the users who have the project open.
    virtual QStringList onlineEditors(const QString &guid) = 0;
    virtual KVXProjectInfo *getProjectInfoByGUID(const QString &guid);
    virtual KVXProjectInfo *getProjectInfo(const QString &name, TProjectsType type);
    virtual bool updateProjectAdditionalInfo(const QString &guid, const QJsonObject &info) = 0;
    /// Reads the whole list anew.
    virtual bool syncProjectList() = 0;
    /// This class: deletes all records of the GUID; true when there was one.
    virtual bool clearProject(const QString &guid);
    virtual QString genProjectNameEx() = 0;
    virtual bool newProjectGroup(TProjectsType type, const QString &name) = 0;
    virtual bool removeProjectGroup(const QString &name) = 0;
    virtual bool renameProjectGroup(const QString &oldName, const QString &newName) = 0;
    virtual bool existsProjectGroup(const QString &name) = 0;

    /// The kind text of a type; empty for a value that is none.
    static QString getProjectType(TProjectsType type);
    /// True between beginUpdate and the endUpdate that closes the outermost bracket. A host opens
    /// a bracket of its own by emitting beginUpdate.
    bool isUpdating() const { return m_updating > 0; }
    /// Kind text to records.
    const QMap<QString, QList<KVXProjectInfo *>> &projects() const { return m_projects; }

Q_SIGNALS:
    void beginUpdate();
    void endUpdate();
    void changed();
    void beginChanged();
    void nameChanged();
    void projectClosed();
    void projectSaved(const QString &guid);
    /// A project became visible; createdByMe: the current user created it.
    void projectOrPermNew(const QString &guid, bool createdByMe);
    void projectRemoved(const QString &guid);
    void change2Unpublish(const QString &guid);
    void projCloseByPermRemoved(const QString &guid);
    void projectPermissionRemoved(const QString &guid);
    /// Permission type to (old value, new value).
    void permissionChanged(const QString &guid, QMap<int, QPair<int, int>> &changes);

protected:
    QMap<QString, QList<KVXProjectInfo *>> m_projects;

private:
    int m_updating = 0;
};
