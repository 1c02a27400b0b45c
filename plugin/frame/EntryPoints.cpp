#include "frame/EntryPoints.h"

#include "common/KVXCWCommonImpl.h"
#include "frame/NewManager.h"
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

void initLoginManager(KVXCWLogin **slot)
{
    kvx::writeNewManager<KVXCWLoginImpl>(slot);
}

void initUserManager(KVXCWUser **slot)
{
    kvx::writeNewManager<KVXCWUserImpl>(slot);
}

void initReportTemplateMgr(KVXReportTemplateMgr **slot)
{
    kvx::writeNewManager<KVXReportTemplateMgrImpl>(slot);
}

void initGlobalLockMgr(KVXGlobalLockMgr **slot)
{
    kvx::writeNewManager<KVXGlobalLockMgrImpl>(slot);
}

void initProjectListManager(KVXCWProjectList **slot)
{
    kvx::writeNewManager<KVXCWProjectListImpl>(slot);
}

void initProjectPermissionManager(KVXCWProjectPermission **slot)
{
    kvx::writeNewManager<KVXCWProjectPermissionImpl>(slot);
}

void initProjectDataSynchronizer(KVXCWProjectData **slot)
{
    kvx::writeNewManager<KVXCWProjectDataImpl>(slot);
}

void initIdManager(KVXCWIDManager **slot)
{
    kvx::writeNewManager<KVXCWIDManagerImpl>(slot);
}

void initOcr(KVXCWOCR **slot)
{
    kvx::writeNewManager<KVXCWOCRImpl>(slot);
}

void initFileService(KVXCWFileService **slot)
{
    kvx::writeNewManager<KVXCWFileServiceImpl>(slot);
}

void initMessage(KVXCWMessage **slot)
{
    kvx::writeNewManager<KVXCWMessageImpl>(slot);
}

void initCommon(KVXCWCommon **slot)
{
    kvx::writeNewManager<KVXCWCommonImpl>(slot);
}

void initServerStatusChecker(void **) { }
