#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// A message for all clients, written in the transaction of the change and sent after its commit.
struct Announcement {
    std::string type; ///< "notifymsg_projectlist", "notifymsg_checkout", …
    std::string command; ///< "Save", "New", …
    /// The content as JSON text, an object with "Command" in it. Empty: the record of the project
    /// is made when the message is sent ("New", "PermissionChanged").
    std::string content;
    std::optional<std::int64_t> projectId; ///< set for everything that belongs to one project
    std::string topic; ///< "roles" or "templates" where no project is named
    std::string sender; ///< canonical e-mail of the acting user; empty for the server itself
    /// E-mails of who saw the project before the change and does not any more: they hear of it too.
    std::vector<std::string> alsoTo = {};
};

struct OutboxRow {
    std::int64_t id = 0;
    std::string topic;
    std::int64_t seq = 0;
    std::string type;
    std::string command;
    std::string sender;
    std::string content;
    std::optional<std::int64_t> projectId;
    Time at = 0;
    int attempts = 0;
    std::string alsoTo; ///< e-mails joined by ";"
};

/// Adds the row. For a project its revision is raised by one and becomes the row's place in the
/// project's order; roles and templates have a counter of their own.
void addAnnouncement(Db &db, Time now, const Announcement &announcement);

/// Rows not sent yet whose key is above `after`, in the order of their commits.
std::vector<OutboxRow> unsentRows(Db &db, std::int64_t after, int maximum);

std::int64_t lastOutboxRow(Db &db);

/// `number` is the message's "notifymsg_seq"; none for a row that had nothing to send any more.
void markSent(Db &db, std::int64_t id, std::optional<std::int64_t> number, Time now);

/// Drops rows sent before `before`; the number of rows.
std::int64_t dropSentRows(Db &db, Time before);

} // namespace kvx::server
