#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// One published version of a project.
struct PublishedVersion {
    std::int64_t version = 0;
    Time at = 0;
    std::string email; ///< of its author
    std::string device;
    std::int64_t size = 0; ///< of the change log, in bytes
    std::string amount;
    std::string digest; ///< SHA-256 of the change log
    std::string chain;
};

/// All versions in order.
std::vector<PublishedVersion> projectHistory(Db &db, std::int64_t projectId);

/// What a project takes up, in bytes and in number.
struct ProjectSpace {
    std::int64_t logs = 0, logBytes = 0;
    std::int64_t fileBytes = 0; ///< of the kept project files
    std::int64_t attachments = 0, attachmentBytes = 0;
    std::int64_t stagedBytes = 0; ///< uploads of a save under way

    std::int64_t total() const { return logBytes + fileBytes + attachmentBytes + stagedBytes; }
};
ProjectSpace projectSpace(Db &db, std::int64_t projectId);

struct UserSpace {
    std::string email;
    std::int64_t files = 0, bytes = 0;
};
/// The users' own areas that hold anything, by e-mail.
std::vector<UserSpace> userSpace(Db &db);

struct StoreSpace {
    std::int64_t blobs = 0, bytes = 0;
};
/// Everything that is stored, each content once: also what nobody refers to any more and the
/// server will remove.
StoreSpace storeSpace(Db &db);

} // namespace kvx::server
