#include "store/ProcessStore.h"
#include "store/Db.h"

#include <unistd.h>

namespace kvx::server {

std::int64_t registerProcess(Db &db, Time now)
{
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    const std::int64_t id = nextKey(db, "process");
    db.run("INSERT INTO process (id, host, started, seen) VALUES (:id, :host, :started, :seen)",
        { { "id", id }, { "host", host }, { "started", now }, { "seen", now } });
    return id;
}

void noteProcess(Db &db, std::int64_t processId, Time now)
{
    db.run(
        "UPDATE process SET seen = :now WHERE id = :id", { { "now", now }, { "id", processId } });
}

} // namespace kvx::server
