#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kvx::server {

/// What "statuscode" says. The numbers are part of the protocol. 204 is made by clients and never
/// sent.
enum class StatusCode {
    Failed = 0,
    Ok = 1,
    NotLoggedIn = 2,
    NotOpenHere = 3,
    BadRequest = 100,
    UnknownService = 101,
    TooLarge = 102,
    Busy = 103,
    ReadOnly = 104,
    StorageFull = 105,
    QuotaExceeded = 106,
    Damaged = 107,
    AccountDisabled = 201,
    TooManySessions = 202,
    ClientTooOld = 203,
    ProductNotAllowed = 205,
    LoginRefused = 235,
    NotAllowed = 300,
    WrongIdentity = 301,
    NoSuchUser = 302,
    LastAdministrator = 303,
    NoSuchProject = 310,
    NameTaken = 311,
    GuidTaken = 312,
    ProjectInUse = 313,
    ProjectLocked = 314,
    NameChanged = 315,
    NameFree = 316,
    NoSuchGroup = 317,
    GroupNotEmpty = 318,
    UnknownKind = 319,
    CreatorKeepsAccess = 320,
    OpenElsewhere = 321,
    LockNotHeld = 600,
    VersionBehind = 601,
    VersionAhead = 602,
    UploadMissing = 603,
    WrongLogName = 604,
    BadArchive = 605,
    NoSuchFile = 606,
    BaseExists = 607,
    OtherHistory = 608,
    CheckedOutByOthers = 620,
    NotYourItems = 621,
    NumbersExhausted = 622,
    NoSuchTemplate = 640,
    TemplateNameTaken = 641,
    BadTemplate = 642,
    GlobalLockHeld = 650,
    GlobalLockNotHeld = 651,
    NotLockHolder = 652,
    NoSuchTable = 660,
    TableChanged = 661,
    NoResourcePackage = 670,
    OcrBadDocument = 680,
    OcrNoLanguage = 681,
    OcrNoSuchJob = 682,
    OcrPageFailed = 683,
    RolesChanged = 690,
};

/// The code's fixed word, as "error" carries it.
std::string_view statusWord(StatusCode code);

/// The sentence for the user, with %1 and %2 filled in. A text that stands in an argument is never
/// read as a placeholder.
std::string statusSentence(StatusCode code, const std::vector<std::string> &arguments = {});

/// Every code, in ascending order.
const std::vector<StatusCode> &allStatusCodes();

} // namespace kvx::server
