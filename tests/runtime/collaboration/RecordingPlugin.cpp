#include "support/PlainManagers.h"

#include <KVXCollaboration/KVXCWCommon.h>
#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWIDManager.h>
#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCWOCR.h>
#include <KVXCollaboration/KVXCWProjectData.h>
#include <KVXCollaboration/KVXCWProjectPermission.h>
#include <KVXCollaboration/KVXCWUser.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXGlobalLockMgr.h>
#include <KVXCollaboration/KVXReportTemplateMgr.h>
#include <QCoreApplication>
#include <QStringList>

// Managers that do nothing but note that they come, are told their project, and go. What is noted
// travels in a property of the application object, so that it outlives the managers. The property
// "kvx.without" names an entry point that yields no manager.

namespace {

void note(const QString &event)
{
    QStringList events = qApp->property("kvx.events").toStringList();
    events.append(event);
    qApp->setProperty("kvx.events", events);
}

template <class Base> class Noted : public Base {
public:
    explicit Noted(const char *name)
        : m_name(QLatin1String(name))
    {
        note(QLatin1Char('+') + m_name);
    }
    ~Noted() override
    {
        note(QLatin1Char('-') + m_name);
        const KVXCollaborator *registry = KVXCollaborator::getInstance();
        if (static_cast<void *>(registry->messager()) == this
            || static_cast<void *>(registry->loginManager()) == this)
            note(QStringLiteral("handed out while dying"));
    }

protected:
    QString m_name;
};

struct Login : kvx::test::PlainLogin<Noted<KVXCWLogin>> {
    using PlainLogin::PlainLogin;
};

struct Message : Noted<KVXCWMessage> {
    using Noted::Noted;
    bool start() override { return false; }
    bool stop() override { return true; }
    QString errorString() const override { return {}; }
};

struct User : Noted<KVXCWUser> {
    using Noted::Noted;
    bool updateRoles() override { return false; }
    bool syncToLocal() override { return false; }
    QString extraInfo() override { return {}; }
    int keepAlive() override { return 0; }
    bool updateUserProductVersion(KVXUser *, KVXUser::KVXUserVersion) override { return false; }
};

struct ReportTemplates : Noted<KVXReportTemplateMgr> {
    using Noted::Noted;
    bool uploadTemplate(KVXTemplateInfo &, const QJsonObject &) override { return false; }
    bool downloadTemplate(const QString &, QJsonObject &) override { return false; }
    bool queryTemplates(QList<KVXTemplateInfo> &) override { return false; }
    bool deleteTemplates(const QStringList &) override { return false; }
    bool deleteTemplate(const QString &) override { return false; }
    bool renameTemplate(const QString &, const QString &) override { return false; }
    bool templateExist(const QString &, bool &, KVXTemplateInfo &) override { return false; }
    bool templateExistByID(const QString &, bool &, KVXTemplateInfo &) override { return false; }
};

struct GlobalLocks : Noted<KVXGlobalLockMgr> {
    using Noted::Noted;
    bool GlobalLock(int, QString &, QString &, int, bool, const QString &, const QString &) override
    {
        return false;
    }
    bool GlobalUnlock(int) override { return false; }
};

struct ProjectList : kvx::test::PlainProjectList<Noted<KVXCWProjectList>> {
    using PlainProjectList::PlainProjectList;
};

struct ProjectPermission : Noted<KVXCWProjectPermission> {
    using Noted::Noted;
    bool updatePermissions(KVXProjectInfo *) override { return false; }
};

struct Ocr : Noted<KVXCWOCR> {
    using Noted::Noted;
    bool recognize(QList<KVXCWOCRParams *>) override { return false; }
    bool stop() override { return false; }
};

struct FileService : Noted<KVXCWFileService> {
    using Noted::Noted;
    bool download(
        const QString &, const QString &, const QString &, KVXCWFileServiceProgress *) override
    {
        return false;
    }
    bool download(const QString &, const QString &, const QString &) override { return false; }
    bool download(const QString &, const QString &, KVXCWFileServiceProgress *) override
    {
        return false;
    }
    bool upload(const QString &, const QString &, const QString &, QJsonObject &, const bool,
        KVXCWFileServiceProgress *) override
    {
        return false;
    }
    bool upload(
        const QString &, const QString &, const QString &, const QMap<QString, QVariant> &) override
    {
        return false;
    }
    bool upload(const QString &, const QString &, KVXCWFileServiceProgress *) override
    {
        return false;
    }
    bool hasUpload(const QString &, const QString &, bool) override { return false; }
};

struct Common : Noted<KVXCWCommon> {
    using Noted::Noted;
    bool updateTable(IKVXSimpleTable *) override { return false; }
    IKVXSimpleTable *getTable(const QString &) override { return nullptr; }
    IKVXSimpleTable *table(const QString &) override { return nullptr; }
    void tick() override { }
    bool resourceVersion(const QString &, int, QString &) override { return false; }
    int downloadResource(const QString &, const QString &, int) override { return 0; }
};

struct ProjectData : Noted<KVXCWProjectData> {
    using Noted::Noted;
    void setProjectGuid(const QString &guid) override
    {
        note(m_name + QLatin1Char('=') + guid);
        m_guid = guid;
        // A manager may ask for itself or its neighbour while it learns its project.
        if (KVXCollaborator::getInstance()->projectDataSynchronizer(guid) != this)
            note(QStringLiteral("a second synchroniser"));
    }
    void setProjectDatabase(IKVXProjectDatabase *) override { }
    QString projectGuid() const override { return m_guid; }
    ErrorCode saveProject(IKVXCWProjectAdditionalInfo *) override { return Success; }
    ErrorCode syncLogs() override { return Success; }

private:
    QString m_guid;
};

struct IdManager : Noted<KVXCWIDManager> {
    using Noted::Noted;
    void setProjectGuid(const QString &guid) override
    {
        note(m_name + QLatin1Char('=') + guid);
        m_guid = guid;
    }
    bool attachDatabase(IKVXProjectDatabase *) override { return false; }
    int newItemId(IKVXProjectDatabase *) override { return -1; }
    bool checkOut(int, const QList<int> &) override { return false; }
    bool checkOut(int, int, KVXItemCheckState &) override { return false; }
    bool checkIn(int, const QList<int> &) override { return false; }
    bool checkIn(int, int) override { return false; }
    int checkState(int, int, KVXItemCheckState &) override { return 0; }
    int ensureCheckedOut(int, int, bool) override { return 0; }
    bool checkInAll() override { return false; }
    bool syncCheckOutStates() override { return false; }
    int itemState(int, int) const override { return 0; }
    bool registerCreatedItems(int, const QList<int> &) override { return true; }
    void rescan() override { }
    void setProjectDatabase(IKVXProjectDatabase *) override { }
    QString projectGuid() const override { return m_guid; }

private:
    QString m_guid;
};

template <class Manager, class Interface> void create(Interface **slot, const char *entryPoint)
{
    const bool without = qApp->property("kvx.without").toString() == QLatin1String(entryPoint);
    *slot = without ? nullptr : new Manager(entryPoint + qstrlen("init"));
}

} // namespace

#define ENTRY_POINT(name, Manager, Interface)                                                      \
    extern "C" Q_DECL_EXPORT void name(Interface **slot)                                           \
    {                                                                                              \
        create<Manager>(slot, #name);                                                              \
    }

ENTRY_POINT(initLoginManager, Login, KVXCWLogin)
ENTRY_POINT(initUserManager, User, KVXCWUser)
ENTRY_POINT(initReportTemplateMgr, ReportTemplates, KVXReportTemplateMgr)
ENTRY_POINT(initGlobalLockMgr, GlobalLocks, KVXGlobalLockMgr)
ENTRY_POINT(initProjectListManager, ProjectList, KVXCWProjectList)
ENTRY_POINT(initProjectPermissionManager, ProjectPermission, KVXCWProjectPermission)
ENTRY_POINT(initProjectDataSynchronizer, ProjectData, KVXCWProjectData)
ENTRY_POINT(initIdManager, IdManager, KVXCWIDManager)
ENTRY_POINT(initOcr, Ocr, KVXCWOCR)
ENTRY_POINT(initFileService, FileService, KVXCWFileService)
ENTRY_POINT(initMessage, Message, KVXCWMessage)
ENTRY_POINT(initCommon, Common, KVXCWCommon)

extern "C" Q_DECL_EXPORT void initServerStatusChecker(void **slot)
{
    note(slot && !*slot ? QStringLiteral("ServerStatusChecker")
                        : QStringLiteral("ServerStatusChecker without an empty slot"));
}
