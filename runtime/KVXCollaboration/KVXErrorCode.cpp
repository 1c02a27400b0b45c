#include <KVXCollaboration/KVXErrorCode.h>

static const char *sentence(KVXErrorCode code)
{
    switch (code) {
    case KVXFailed:
        return "The server could not carry out the request (number …).";
    case KVXOk:
        return "Done.";
    case KVXNotLoggedIn:
        return "You are not logged in, or your session has ended. Please log in again.";
    case KVXNotOpenHere:
        return "The project is open in another of your sessions, not in this one.";
    case KVXBadRequest:
        return "The request is not valid: ….";
    case KVXUnknownService:
        return "This server does not know the service \"…\".";
    case KVXTooLarge:
        return "The data is larger than the server accepts (…).";
    case KVXBusy:
        return "The server is busy. Please try again in a moment.";
    case KVXReadOnly:
        return "The server is in maintenance: reading works, changing is switched off.";
    case KVXStorageFull:
        return "The server has no space left. Please tell your administrator.";
    case KVXQuotaExceeded:
        return "Your share of the server's space is used up (…).";
    case KVXDamaged:
        return "The file arrived damaged. Please send it again.";
    case KVXAccountDisabled:
        return "This account is disabled.";
    case KVXTooManySessions:
        return "You are logged in too many times. Log out elsewhere first.";
    case KVXClientTooOld:
        return "This server needs a newer version of the application (…).";
    case KVXAlreadyConnected:
        return "This user is already connected from another place. Log out there first.";
    case KVXProductNotAllowed:
        return "This server does not serve the product \"…\".";
    case KVXLoginRefused:
        return "E-mail or password is wrong. Tries left: ….";
    case KVXNotAllowed:
        return "You do not have the right to do this.";
    case KVXWrongIdentity:
        return "The request names another user than the one logged in.";
    case KVXNoSuchUser:
        return "There is no user \"…\".";
    case KVXLastAdministrator:
        return "At least one enabled administrator must remain.";
    case KVXNoSuchProject:
        return "There is no such project.";
    case KVXNameTaken:
        return "\"…\" exists already.";
    case KVXGuidTaken:
        return "This project number was used before.";
    case KVXProjectInUse:
        return "The project is open at: ….";
    case KVXProjectLocked:
        return "The project is locked by ….";
    case KVXNameChanged:
        return "The project is no longer named \"…\".";
    case KVXNameFree:
        return "Nothing has this name.";
    case KVXNoSuchGroup:
        return "There is no group \"…\".";
    case KVXGroupNotEmpty:
        return "The group still holds … projects.";
    case KVXUnknownKind:
        return "\"…\" is not a kind of project.";
    case KVXCreatorKeepsAccess:
        return "Only an administrator can take the creator's access away.";
    case KVXOpenElsewhere:
        return "You have this project open on …. Close it there first.";
    case KVXLockNotHeld:
        return "Your save was overtaken: the server no longer holds the save lock for you.";
    case KVXVersionBehind:
        return "Somebody saved before you. Synchronise and save again.";
    case KVXVersionAhead:
        return "Your copy is newer than the server's (restored from a backup?). Nothing was "
               "changed; keep your copy and tell your administrator.";
    case KVXUploadMissing:
        return "The change log or the project file of this save has not arrived.";
    case KVXWrongLogName:
        return "The file name does not belong to this save.";
    case KVXBadArchive:
        return "The change log is not a valid archive: ….";
    case KVXNoSuchFile:
        return "The server has no such file.";
    case KVXBaseExists:
        return "The project has its first file already; save instead.";
    case KVXOtherHistory:
        return "Your copy holds saves that the server lost when it was put back to an earlier "
               "state, and others have saved since. Nothing was changed; keep your copy and tell "
               "your administrator.";
    case KVXCheckedOutByOthers:
        return "… of the items are checked out by others.";
    case KVXNotYourItems:
        return "… of the items are checked out by somebody else.";
    case KVXNumbersExhausted:
        return "The project has no item numbers left.";
    case KVXNoSuchTemplate:
        return "There is no such report template.";
    case KVXTemplateNameTaken:
        return "A template of this name by … exists already.";
    case KVXBadTemplate:
        return "The template is not valid.";
    case KVXGlobalLockHeld:
        return "This is locked by … until ….";
    case KVXGlobalLockNotHeld:
        return "This is not locked.";
    case KVXNotLockHolder:
        return "This is locked by ….";
    case KVXNoSuchTable:
        return "The server has no table \"…\".";
    case KVXTableChanged:
        return "The table was changed meanwhile. Load it again.";
    case KVXNoResourcePackage:
        return "No resource package has been published.";
    case KVXOcrBadDocument:
        return "The document cannot be read: ….";
    case KVXOcrNoLanguage:
        return "Recognition of \"…\" is not installed.";
    case KVXOcrNoSuchJob:
        return "There is no such recognition job.";
    case KVXOcrPageFailed:
        return "Page … could not be recognised: ….";
    case KVXRolesChanged:
        return "The roles were changed meanwhile. Load them again.";
    }
    return nullptr;
}

QString ErrorCodeToString(KVXErrorCode code)
{
    if (const char *text = sentence(code))
        return QString::fromUtf8(text);
    return QStringLiteral("Unknown result (number %1).").arg(static_cast<int>(code));
}
