#include "services/StatusCode.h"

namespace kvx::server {

namespace {

struct StatusText {
    StatusCode code;
    std::string_view word;
    std::string_view sentence;
};

constexpr StatusText statusTexts[] = {
    { StatusCode::Failed, "Failed", "The server could not carry out the request (number %1)." },
    { StatusCode::Ok, "Ok", "Done." },
    { StatusCode::NotLoggedIn, "NotLoggedIn",
        "You are not logged in, or your session has ended. Please log in again." },
    { StatusCode::NotOpenHere, "NotOpenHere",
        "The project is open in another of your sessions, not in this one." },
    { StatusCode::BadRequest, "BadRequest", "The request is not valid: %1." },
    { StatusCode::UnknownService, "UnknownService",
        "This server does not know the service \"%1\"." },
    { StatusCode::TooLarge, "TooLarge", "The data is larger than the server accepts (%1)." },
    { StatusCode::Busy, "Busy", "The server is busy. Please try again in a moment." },
    { StatusCode::ReadOnly, "ReadOnly",
        "The server is in maintenance: reading works, changing is switched off." },
    { StatusCode::StorageFull, "StorageFull",
        "The server has no space left. Please tell your administrator." },
    { StatusCode::QuotaExceeded, "QuotaExceeded",
        "Your share of the server's space is used up (%1)." },
    { StatusCode::Damaged, "Damaged", "The file arrived damaged. Please send it again." },
    { StatusCode::AccountDisabled, "AccountDisabled", "This account is disabled." },
    { StatusCode::TooManySessions, "TooManySessions",
        "You are logged in too many times. Log out elsewhere first." },
    { StatusCode::ClientTooOld, "ClientTooOld",
        "This server needs a newer version of the application (%1)." },
    { StatusCode::ProductNotAllowed, "ProductNotAllowed",
        "This server does not serve the product \"%1\"." },
    { StatusCode::LoginRefused, "LoginRefused", "E-mail or password is wrong. Tries left: %1." },
    { StatusCode::NotAllowed, "NotAllowed", "You do not have the right to do this." },
    { StatusCode::WrongIdentity, "WrongIdentity",
        "The request names another user than the one logged in." },
    { StatusCode::NoSuchUser, "NoSuchUser", "There is no user \"%1\"." },
    { StatusCode::LastAdministrator, "LastAdministrator",
        "At least one enabled administrator must remain." },
    { StatusCode::NoSuchProject, "NoSuchProject", "There is no such project." },
    { StatusCode::NameTaken, "NameTaken", "\"%1\" exists already." },
    { StatusCode::GuidTaken, "GuidTaken", "This project number was used before." },
    { StatusCode::ProjectInUse, "ProjectInUse", "The project is open at: %1." },
    { StatusCode::ProjectLocked, "ProjectLocked", "The project is locked by %1." },
    { StatusCode::NameChanged, "NameChanged", "The project is no longer named \"%1\"." },
    { StatusCode::NameFree, "NameFree", "Nothing has this name." },
    { StatusCode::NoSuchGroup, "NoSuchGroup", "There is no group \"%1\"." },
    { StatusCode::GroupNotEmpty, "GroupNotEmpty", "The group still holds %1 projects." },
    { StatusCode::UnknownKind, "UnknownKind", "\"%1\" is not a kind of project." },
    { StatusCode::CreatorKeepsAccess, "CreatorKeepsAccess",
        "Only an administrator can take the creator's access away." },
    { StatusCode::OpenElsewhere, "OpenElsewhere",
        "You have this project open on %1. Close it there first." },
    { StatusCode::LockNotHeld, "LockNotHeld",
        "Your save was overtaken: the server no longer holds the save lock for you." },
    { StatusCode::VersionBehind, "VersionBehind",
        "Somebody saved before you. Synchronise and save again." },
    { StatusCode::VersionAhead, "VersionAhead",
        "Your copy is newer than the server's (restored from a backup?). Nothing was "
        "changed; keep your copy and tell your administrator." },
    { StatusCode::UploadMissing, "UploadMissing",
        "The change log or the project file of this save has not arrived." },
    { StatusCode::WrongLogName, "WrongLogName", "The file name does not belong to this save." },
    { StatusCode::BadArchive, "BadArchive", "The change log is not a valid archive: %1." },
    { StatusCode::NoSuchFile, "NoSuchFile", "The server has no such file." },
    { StatusCode::BaseExists, "BaseExists",
        "The project has its first file already; save instead." },
    { StatusCode::OtherHistory, "OtherHistory",
        "Your copy holds saves that the server lost when it was put back to an earlier state, and "
        "others have saved since. Nothing was changed; keep your copy and tell your "
        "administrator." },
    { StatusCode::CheckedOutByOthers, "CheckedOutByOthers",
        "%1 of the items are checked out by others." },
    { StatusCode::NotYourItems, "NotYourItems",
        "%1 of the items are checked out by somebody else." },
    { StatusCode::NumbersExhausted, "NumbersExhausted", "The project has no item numbers left." },
    { StatusCode::NoSuchTemplate, "NoSuchTemplate", "There is no such report template." },
    { StatusCode::TemplateNameTaken, "TemplateNameTaken",
        "A template of this name by %1 exists already." },
    { StatusCode::BadTemplate, "BadTemplate", "The template is not valid." },
    { StatusCode::GlobalLockHeld, "GlobalLockHeld", "This is locked by %1 until %2." },
    { StatusCode::GlobalLockNotHeld, "GlobalLockNotHeld", "This is not locked." },
    { StatusCode::NotLockHolder, "NotLockHolder", "This is locked by %1." },
    { StatusCode::NoSuchTable, "NoSuchTable", "The server has no table \"%1\"." },
    { StatusCode::TableChanged, "TableChanged", "The table was changed meanwhile. Load it again." },
    { StatusCode::NoResourcePackage, "NoResourcePackage",
        "No resource package has been published." },
    { StatusCode::OcrBadDocument, "OcrBadDocument", "The document cannot be read: %1." },
    { StatusCode::OcrNoLanguage, "OcrNoLanguage", "Recognition of \"%1\" is not installed." },
    { StatusCode::OcrNoSuchJob, "OcrNoSuchJob", "There is no such recognition job." },
    { StatusCode::OcrPageFailed, "OcrPageFailed", "Page %1 could not be recognised: %2." },
    { StatusCode::RolesChanged, "RolesChanged",
        "The roles were changed meanwhile. Load them again." },
};

const StatusText &statusText(StatusCode code)
{
    for (const StatusText &text : statusTexts) {
        if (text.code == code)
            return text;
    }
    return statusTexts[0];
}

} // namespace

std::string_view statusWord(StatusCode code)
{
    return statusText(code).word;
}

std::string statusSentence(StatusCode code, const std::vector<std::string> &arguments)
{
    const std::string_view sentence = statusText(code).sentence;
    std::string result;
    for (std::size_t i = 0; i < sentence.size(); ++i) {
        const bool placeholder = sentence[i] == '%' && i + 1 < sentence.size()
            && sentence[i + 1] >= '1' && sentence[i + 1] <= '9';
        if (!placeholder) {
            result += sentence[i];
            continue;
        }
        const auto index = static_cast<std::size_t>(sentence[++i] - '1');
        if (index < arguments.size())
            result += arguments[index];
    }
    return result;
}

const std::vector<StatusCode> &allStatusCodes()
{
    static const std::vector<StatusCode> codes = [] {
        std::vector<StatusCode> all;
        for (const StatusText &text : statusTexts)
            all.push_back(text.code);
        return all;
    }();
    return codes;
}

} // namespace kvx::server
