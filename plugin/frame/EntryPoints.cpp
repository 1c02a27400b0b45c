#include "frame/EntryPoints.h"

#include "common/KVXCWCommonImpl.h"
#include "login/KVXCWLoginImpl.h"
#include "messaging/KVXCWMessageImpl.h"
#include "projectdata/KVXCWIDManagerImpl.h"
#include "projectdata/KVXCWProjectDataImpl.h"
#include "projectlist/KVXCWProjectListImpl.h"
#include "projectlist/KVXCWProjectPermissionImpl.h"
#include "resources/KVXCWFileServiceImpl.h"
#include "resources/KVXCWOCRImpl.h"
#include "resources/KVXGlobalLockMgrImpl.h"
#include "resources/KVXReportTemplateMgrImpl.h"
#include "users/KVXCWUserImpl.h"

#include <new>

namespace {

template <class Manager, class Interface> void create(Interface **slot)
{
    *slot = new (std::nothrow) Manager;
}

} // namespace

void initLoginManager(KVXCWLogin **slot)
{
    create<KVXCWLoginImpl>(slot);
}

void initUserManager(KVXCWUser **slot)
{
    create<KVXCWUserImpl>(slot);
}

void initReportTemplateMgr(KVXReportTemplateMgr **slot)
{
    create<KVXReportTemplateMgrImpl>(slot);
}

void initGlobalLockMgr(KVXGlobalLockMgr **slot)
{
    create<KVXGlobalLockMgrImpl>(slot);
}

void initProjectListManager(KVXCWProjectList **slot)
{
    create<KVXCWProjectListImpl>(slot);
}

void initProjectPermissionManager(KVXCWProjectPermission **slot)
{
    create<KVXCWProjectPermissionImpl>(slot);
}

void initProjectDataSynchronizer(KVXCWProjectData **slot)
{
    create<KVXCWProjectDataImpl>(slot);
}

void initIdManager(KVXCWIDManager **slot)
{
    create<KVXCWIDManagerImpl>(slot);
}

void initOcr(KVXCWOCR **slot)
{
    create<KVXCWOCRImpl>(slot);
}

void initFileService(KVXCWFileService **slot)
{
    create<KVXCWFileServiceImpl>(slot);
}

void initMessage(KVXCWMessage **slot)
{
    create<KVXCWMessageImpl>(slot);
}

void initCommon(KVXCWCommon **slot)
{
    create<KVXCWCommonImpl>(slot);
}

void initServerStatusChecker(void **) { }
