#pragma once

#include <KVXExport.h>

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

/// All that the plug-in exports. Each writes a new manager, owned by the caller, into the slot;
/// null when it could not be made. Host thread.
/// The messager comes first and is registered before the user, project list, ID and report
/// template managers are created, which connect to it; the login manager before the user manager;
/// the server address is set before the user, project list and OCR managers.
extern "C" {

KVX_DECL_EXPORT void initLoginManager(KVXCWLogin **slot);
KVX_DECL_EXPORT void initUserManager(KVXCWUser **slot);
KVX_DECL_EXPORT void initReportTemplateMgr(KVXReportTemplateMgr **slot);
KVX_DECL_EXPORT void initGlobalLockMgr(KVXGlobalLockMgr **slot);
KVX_DECL_EXPORT void initProjectListManager(KVXCWProjectList **slot);
KVX_DECL_EXPORT void initProjectPermissionManager(KVXCWProjectPermission **slot);
/// Once for each opened project, as initIdManager.
KVX_DECL_EXPORT void initProjectDataSynchronizer(KVXCWProjectData **slot);
KVX_DECL_EXPORT void initIdManager(KVXCWIDManager **slot);
KVX_DECL_EXPORT void initOcr(KVXCWOCR **slot);
KVX_DECL_EXPORT void initFileService(KVXCWFileService **slot);
KVX_DECL_EXPORT void initMessage(KVXCWMessage **slot);
KVX_DECL_EXPORT void initCommon(KVXCWCommon **slot);
/// Does nothing: the slot keeps what it holds.
KVX_DECL_EXPORT void initServerStatusChecker(void **slot);

} // extern "C"
