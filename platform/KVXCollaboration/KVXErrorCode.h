#pragma once

#include <KVXExport.h>
#include <QString>

/// Result of login-type operations and every "statuscode" of the server. The server may send a
/// value that is not listed; it is passed on unchanged.
enum KVXErrorCode : int {
    KVXFailed = 0,
    KVXOk = 1,
    KVXNotLoggedIn = 2,
    KVXNotOpenHere = 3,
    KVXBadRequest = 100,
    KVXUnknownService = 101,
    KVXTooLarge = 102,
    KVXBusy = 103,
    KVXReadOnly = 104,
    KVXStorageFull = 105,
    KVXQuotaExceeded = 106,
    KVXDamaged = 107,
    KVXAccountDisabled = 201,
    KVXTooManySessions = 202,
    KVXClientTooOld = 203,
    KVXAlreadyConnected = 204, ///< made by the client: the broker knows this user elsewhere
    KVXProductNotAllowed = 205,
    KVXLoginRefused = 235, ///< comes with the tries left
    KVXNotAllowed = 300,
    KVXWrongIdentity = 301,
    KVXNoSuchUser = 302,
    KVXLastAdministrator = 303,
    KVXNoSuchProject = 310,
    KVXNameTaken = 311,
    KVXGuidTaken = 312,
    KVXProjectInUse = 313,
    KVXProjectLocked = 314,
    KVXNameChanged = 315,
    KVXNameFree = 316,
    KVXNoSuchGroup = 317,
    KVXGroupNotEmpty = 318,
    KVXUnknownKind = 319,
    KVXCreatorKeepsAccess = 320,
    KVXOpenElsewhere = 321,
    KVXLockNotHeld = 600,
    KVXVersionBehind = 601,
    KVXVersionAhead = 602,
    KVXUploadMissing = 603,
    KVXWrongLogName = 604,
    KVXBadArchive = 605,
    KVXNoSuchFile = 606,
    KVXBaseExists = 607,
    KVXOtherHistory = 608,
    KVXCheckedOutByOthers = 620,
    KVXNotYourItems = 621,
    KVXNumbersExhausted = 622,
    KVXNoSuchTemplate = 640,
    KVXTemplateNameTaken = 641,
    KVXBadTemplate = 642,
    KVXGlobalLockHeld = 650,
    KVXGlobalLockNotHeld = 651,
    KVXNotLockHolder = 652,
    KVXNoSuchTable = 660,
    KVXTableChanged = 661,
    KVXNoResourcePackage = 670,
    KVXOcrBadDocument = 680,
    KVXOcrNoLanguage = 681,
    KVXOcrNoSuchJob = 682,
    KVXOcrPageFailed = 683,
    KVXRolesChanged = 690
};

/// The sentence for the user. Details that only the server knows are shown as "…".
KVXCOLLABORATION_API QString ErrorCodeToString(KVXErrorCode code);
