#pragma once

#include <KVXExport.h>
#include <QString>
#include <memory>

class KVXCWCommon;
class KVXCWFileService;
class KVXCWIDManager;
class KVXCWLogin;
class KVXCWMessage;
class KVXCWOCR;
class KVXCWProjectData;
class KVXCWProjectList;
class KVXCWProjectPermission;
class KVXCWUser;
class KVXGlobalLockMgr;
class KVXReportTemplateMgr;

/// Registry of the collaboration managers: loads the plug-in, creates the managers in the order
/// that their constructors need, owns them and hands them out. Host thread.
/// A manager that the plug-in does not offer is null.
class KVXCOLLABORATION_API KVXCollaborator {
public:
    static KVXCollaborator *getInstance();

    /// Loads the plug-in library and creates the messager and the login manager. False with
    /// errorString() otherwise.
    bool load(const QString &pluginPath);
    /// Creates the other managers. Called once the server address is set: some read it or ask the
    /// server when they are created.
    void initialise();
    /// Destroys the managers in reverse order of their creation and lets go of the plug-in, whose
    /// code stays in memory since texts that it handed out may live there. Happens by itself when
    /// the QCoreApplication ends.
    void unload();
    QString errorString() const;

    KVXCWLogin *loginManager() const;
    KVXCWUser *userManager() const;
    KVXReportTemplateMgr *reportTemplateManager() const;
    KVXGlobalLockMgr *globalLockManager() const;
    KVXCWProjectList *projectListManager() const;
    KVXCWProjectPermission *projectPermissionManager() const;
    KVXCWOCR *ocr() const;
    KVXCWFileService *fileService() const;
    KVXCWMessage *messager() const;
    KVXCWCommon *common() const;

    /// The managers of one project, created on first use and told the GUID once; null for an empty
    /// GUID and while the registry is being torn down.
    KVXCWProjectData *projectDataSynchronizer(const QString &guid);
    KVXCWIDManager *idManager(const QString &guid);
    /// True: drops the two managers of the project, the ID manager first. False: those of all
    /// projects. They are deleted at once.
    void reset(bool project, const QString &guid);

    /// For tests: the registry takes ownership and destroys what was there; null only destroys.
    void setLoginManager(KVXCWLogin *manager);
    void setUserManager(KVXCWUser *manager);
    void setProjectListManager(KVXCWProjectList *manager);
    void setProjectPermissionManager(KVXCWProjectPermission *manager);
    void setFileService(KVXCWFileService *service);
    void setMessager(KVXCWMessage *messager);
    void setProjectDataSynchronizer(const QString &guid, KVXCWProjectData *synchronizer);
    void setIdManager(const QString &guid, KVXCWIDManager *manager);
    /// For tests that link the plug-in: entry points of the per-project managers.
    using InitProjectData = void (*)(KVXCWProjectData **slot);
    using InitIdManager = void (*)(KVXCWIDManager **slot);
    void setProjectEntryPoints(InitProjectData projectData, InitIdManager idManager);

private:
    KVXCollaborator();
    ~KVXCollaborator();
    struct Private;
    std::unique_ptr<Private> d;
};
