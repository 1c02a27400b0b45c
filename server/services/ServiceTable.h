#pragma once

#include "services/Call.h"
#include "services/Reply.h"

#include <vector>

namespace kvx::server {

/// What the dispatcher checks before a handler runs, and how the handler runs. Joined with "|".
enum ServiceRule : unsigned {
    Anonymous = 0, ///< no session needed
    NeedsUser = 1u << 0, ///< a live session, else "NotLoggedIn"
    ProjectReader = (1u << 1) | NeedsUser, ///< "ProjectGUID" names a project the caller may read
    ProjectWriter = (1u << 2) | ProjectReader, ///< … and may change
    ProjectOwner = (1u << 3) | ProjectReader, ///< … and whose creator he is; or an administrator
    Administrator = (1u << 4) | NeedsUser,

    NamesCaller = 1u << 5, ///< "Email" must be there; whenever there it must be the caller's
    NamesCallerLower = 1u << 6, ///< the same for "email"
    NamesOwnAccount = (1u << 7) | NeedsUser, ///< "Email" is the caller; an administrator's is free
    Unlocked = 1u << 8, ///< refused while another user holds the project lock

    Writes = 1u << 9, ///< runs in a writing transaction; without it the handler reads one snapshot
    InMaintenance = 1u << 10, ///< answers although it writes and the server is in maintenance
    NameQuestion = 1u << 11, ///< at most five a second and session
    LargeBody = 1u << 12, ///< JSON up to 8 MiB instead of 1 MiB
    HugeBody = 1u << 13, ///< JSON up to 16 MiB
    JudgedByHttp = 1u << 14, ///< refusals carry an HTTP status, since clients look at nothing else
    RepeatsSentence = 1u << 15, ///< refusals repeat the sentence under the empty key
    ListsItems = 1u << 16, ///< refusals carry an empty "CheckoutInfo"

    NamesCreator = 1u << 17, ///< "CreatorEmail" must be there and the caller's
    CreatesKind = (1u << 18) | NeedsUser, ///< "Type" is a kind that the caller's role may create
    /// "AddendumProjectGUID" names the project: he may read it and has its "Addendum".
    AmendsProject = (1u << 19) | ProjectReader,
    /// "newProjectGuid" names the project, and "oldProjectGuid" another one that he may read.
    BetweenProjects = (1u << 20) | ProjectReader,
    /// A project that is gone or not his refuses nothing: the handler finds none (hasProject) and
    /// judges what he may still do, such as free what is his.
    MayBeGone = 1u << 21,

    NeedsRole = (1u << 22) | NeedsUser, ///< any role
    UploadsTemplates = (1u << 23) | NeedsUser, ///< a role with "UploadReportSetting"

    /// A writing one whose effect a power cut may take back, so that it waits for no disk: it ends
    /// by itself anyway, and who relied on it is refused later and begins again.
    WritesLazily = (1u << 24) | Writes,
    /// Reads a few rows and does nothing that takes long: runs on the thread that asks. Of a
    /// writing one this holds up to what it does afterwards (Reply::after); only that writes.
    Light = 1u << 25,
};

constexpr ServiceRule operator|(ServiceRule a, ServiceRule b)
{
    return static_cast<ServiceRule>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

constexpr bool hasRule(ServiceRule rules, ServiceRule rule)
{
    return (static_cast<unsigned>(rules) & static_cast<unsigned>(rule))
        == static_cast<unsigned>(rule);
}

using ServiceHandler = Reply (*)(Call &);

/// One service: its name, what it does, and who may call it.
struct Service {
    const char *name;
    ServiceHandler handler;
    ServiceRule rules;
    /// Set for a service that takes a file. Runs (reading) when the request part has arrived and
    /// before the file is read; a refusal there spares the client the transfer. The handler runs
    /// when the file is on disk.
    ServiceHandler beforeUpload = nullptr;
    /// Set where some requests of a service ask for more than the others: their further rules.
    ServiceRule (*furtherRules)(const Request &) = nullptr;

    ServiceRule rulesFor(const Request &request) const;
};

using ServiceTable = std::vector<Service>;

/// A path and the services behind it.
struct Endpoint {
    const char *path;
    std::vector<const ServiceTable *> tables;
    /// Set where the path alone names the service: the body may be missing and GET is allowed.
    const char *service = nullptr;
};

/// All paths of the public listener; the one place where service tables are listed.
const std::vector<Endpoint> &allEndpoints();

} // namespace kvx::server
