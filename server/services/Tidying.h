#pragma once

namespace kvx::server {

class Db;
struct Environment;

/// Removes blobs that no row has named for a day, and files of the store that never got a row. A
/// slice of the store at a time; the rest comes in later rounds.
void sweepBlobs(const Environment &environment, Db &db);

/// Empties projects that were removed longer than `projects.trashDays` ago. Their GUIDs stay taken.
void purgeTrash(const Environment &environment, Db &db);

} // namespace kvx::server
