#include <KVXCollaboration/KVXCollaborator.h>

#include <KVXCollaboration/KVXCWCommon.h>
#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWIDManager.h>
#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCWOCR.h>
#include <KVXCollaboration/KVXCWProjectData.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCWProjectPermission.h>
#include <KVXCollaboration/KVXCWUser.h>
#include <KVXCollaboration/KVXGlobalLockMgr.h>
#include <KVXCollaboration/KVXReportTemplateMgr.h>
#include <QCoreApplication>
#include <QLibrary>
#include <functional>
#include <map>
#include <utility>
#include <vector>

struct KVXCollaborator::Private {
    struct ProjectManagers {
        KVXCWProjectData *synchronizer = nullptr;
        KVXCWIDManager *idManager = nullptr;
    };
    struct Created {
        const void *slot;
        std::function<void()> destroy;
    };

    KVXCWMessage *messager = nullptr;
    KVXCWLogin *login = nullptr;
    KVXCWUser *user = nullptr;
    KVXReportTemplateMgr *reportTemplate = nullptr;
    KVXGlobalLockMgr *globalLock = nullptr;
    KVXCWProjectList *projectList = nullptr;
    KVXCWProjectPermission *projectPermission = nullptr;
    KVXCWOCR *ocr = nullptr;
    KVXCWFileService *fileService = nullptr;
    KVXCWCommon *common = nullptr;

    std::vector<Created> created; // the managers above that exist, in the order of their creation
    std::map<QString, ProjectManagers> projects;
    InitProjectData initProjectData = nullptr;
    InitIdManager initIdManager = nullptr;
    void (*initServerStatusChecker)(void **) = nullptr; // until it was called
    QLibrary library;
    QString error;
    bool ending = false;

    template <class Function> Function resolve(const char *name)
    {
        return reinterpret_cast<Function>(library.resolve(name));
    }

    template <class Manager> void create(Manager *&slot, const char *entryPoint)
    {
        const auto init = resolve<void (*)(Manager **)>(entryPoint);
        if (slot || !init)
            return;
        Manager *manager = nullptr;
        init(&manager);
        place(slot, manager);
    }

    template <class Manager> void place(Manager *&slot, Manager *manager)
    {
        if (slot == manager)
            return;
        destroy(&slot);
        if (!manager)
            return;
        slot = manager;
        // The slot is empty before the destructor runs: nobody is handed a dying manager.
        created.push_back({ &slot, [&slot] { delete std::exchange(slot, nullptr); } });
    }

    void destroy(const void *slot)
    {
        for (auto entry = created.begin(); entry != created.end(); ++entry) {
            if (entry->slot == slot) {
                const Created taken = std::move(*entry);
                created.erase(entry);
                taken.destroy();
                return;
            }
        }
    }

    static void destroyProject(ProjectManagers &managers)
    {
        delete std::exchange(managers.idManager, nullptr);
        delete std::exchange(managers.synchronizer, nullptr);
    }

    void destroyProjects()
    {
        while (!projects.empty()) {
            auto taken = projects.extract(projects.begin());
            destroyProject(taken.mapped());
        }
    }

    void destroyAll()
    {
        ending = true;
        destroyProjects();
        while (!created.empty()) {
            const Created taken = std::move(created.back());
            created.pop_back();
            taken.destroy();
        }
        ending = false;
    }

    static void tearDown() { KVXCollaborator::getInstance()->unload(); }
};

KVXCollaborator *KVXCollaborator::getInstance()
{
    static KVXCollaborator instance;
    return &instance;
}

KVXCollaborator::KVXCollaborator()
    : d(std::make_unique<Private>())
{
    // The managers need the application's event system, so they go before it does.
    qAddPostRoutine(Private::tearDown);
}

KVXCollaborator::~KVXCollaborator()
{
    qRemovePostRoutine(Private::tearDown);
    unload();
}

bool KVXCollaborator::load(const QString &pluginPath)
{
    if (d->library.isLoaded()) {
        d->error = QStringLiteral("A plug-in is loaded already: %1").arg(d->library.fileName());
        return false;
    }
    d->library.setFileName(pluginPath);
    d->library.setLoadHints(QLibrary::ResolveAllSymbolsHint | QLibrary::PreventUnloadHint);
    if (!d->library.load()) {
        d->error = d->library.errorString();
        return false;
    }
    d->initProjectData = d->resolve<InitProjectData>("initProjectDataSynchronizer");
    d->initIdManager = d->resolve<InitIdManager>("initIdManager");
    d->initServerStatusChecker = d->resolve<void (*)(void **)>("initServerStatusChecker");
    // The managers created later connect to the messager and ask the login manager for the user.
    d->create(d->messager, "initMessage");
    d->create(d->login, "initLoginManager");
    if (!d->messager || !d->login) {
        const QString reason
            = QStringLiteral("%1 offers no %2.")
                  .arg(d->library.fileName(),
                      d->messager ? QStringLiteral("login manager") : QStringLiteral("messager"));
        unload();
        d->error = reason;
        return false;
    }
    d->error.clear();
    return true;
}

void KVXCollaborator::initialise()
{
    if (!d->library.isLoaded())
        return;
    d->create(d->user, "initUserManager");
    d->create(d->reportTemplate, "initReportTemplateMgr");
    d->create(d->globalLock, "initGlobalLockMgr");
    d->create(d->projectList, "initProjectListManager");
    d->create(d->projectPermission, "initProjectPermissionManager");
    d->create(d->ocr, "initOcr");
    d->create(d->fileService, "initFileService");
    d->create(d->common, "initCommon");
    if (const auto init = std::exchange(d->initServerStatusChecker, nullptr)) {
        void *slot = nullptr; // stays empty: the checker is no object
        init(&slot);
    }
}

void KVXCollaborator::unload()
{
    d->destroyAll();
    d->initProjectData = nullptr;
    d->initIdManager = nullptr;
    d->initServerStatusChecker = nullptr;
    if (d->library.isLoaded())
        d->library.unload();
    d->error.clear();
}

QString KVXCollaborator::errorString() const
{
    return d->error;
}

KVXCWLogin *KVXCollaborator::loginManager() const
{
    return d->login;
}

KVXCWUser *KVXCollaborator::userManager() const
{
    return d->user;
}

KVXReportTemplateMgr *KVXCollaborator::reportTemplateManager() const
{
    return d->reportTemplate;
}

KVXGlobalLockMgr *KVXCollaborator::globalLockManager() const
{
    return d->globalLock;
}

KVXCWProjectList *KVXCollaborator::projectListManager() const
{
    return d->projectList;
}

KVXCWProjectPermission *KVXCollaborator::projectPermissionManager() const
{
    return d->projectPermission;
}

KVXCWOCR *KVXCollaborator::ocr() const
{
    return d->ocr;
}

KVXCWFileService *KVXCollaborator::fileService() const
{
    return d->fileService;
}

KVXCWMessage *KVXCollaborator::messager() const
{
    return d->messager;
}

KVXCWCommon *KVXCollaborator::common() const
{
    return d->common;
}

KVXCWProjectData *KVXCollaborator::projectDataSynchronizer(const QString &guid)
{
    const auto found = d->projects.find(guid);
    if (found != d->projects.end() && found->second.synchronizer)
        return found->second.synchronizer;
    if (guid.isEmpty() || d->ending || !d->initProjectData)
        return nullptr;
    KVXCWProjectData *synchronizer = nullptr;
    d->initProjectData(&synchronizer);
    if (synchronizer) {
        // Entered first: what setProjectGuid calls may ask the registry for this very object.
        d->projects[guid].synchronizer = synchronizer;
        synchronizer->setProjectGuid(guid);
    }
    return synchronizer;
}

KVXCWIDManager *KVXCollaborator::idManager(const QString &guid)
{
    const auto found = d->projects.find(guid);
    if (found != d->projects.end() && found->second.idManager)
        return found->second.idManager;
    if (guid.isEmpty() || d->ending || !d->initIdManager)
        return nullptr;
    KVXCWIDManager *manager = nullptr;
    d->initIdManager(&manager);
    if (manager) {
        d->projects[guid].idManager = manager;
        manager->setProjectGuid(guid);
    }
    return manager;
}

void KVXCollaborator::reset(bool project, const QString &guid)
{
    if (!project) {
        d->destroyProjects();
        return;
    }
    auto taken = d->projects.extract(guid);
    if (taken)
        Private::destroyProject(taken.mapped());
}

void KVXCollaborator::setLoginManager(KVXCWLogin *manager)
{
    d->place(d->login, manager);
}

void KVXCollaborator::setUserManager(KVXCWUser *manager)
{
    d->place(d->user, manager);
}

void KVXCollaborator::setProjectListManager(KVXCWProjectList *manager)
{
    d->place(d->projectList, manager);
}

void KVXCollaborator::setProjectPermissionManager(KVXCWProjectPermission *manager)
{
    d->place(d->projectPermission, manager);
}

void KVXCollaborator::setFileService(KVXCWFileService *service)
{
    d->place(d->fileService, service);
}

void KVXCollaborator::setMessager(KVXCWMessage *messager)
{
    d->place(d->messager, messager);
}

void KVXCollaborator::setProjectDataSynchronizer(
    const QString &guid, KVXCWProjectData *synchronizer)
{
    KVXCWProjectData *&slot = d->projects[guid].synchronizer;
    if (slot != synchronizer)
        delete std::exchange(slot, synchronizer);
}

void KVXCollaborator::setIdManager(const QString &guid, KVXCWIDManager *manager)
{
    KVXCWIDManager *&slot = d->projects[guid].idManager;
    if (slot != manager)
        delete std::exchange(slot, manager);
}

void KVXCollaborator::setProjectEntryPoints(InitProjectData projectData, InitIdManager idManager)
{
    d->initProjectData = projectData;
    d->initIdManager = idManager;
}
