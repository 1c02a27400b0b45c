#include "client/DatabaseMemory.h"

#include <sqlite3.h>

namespace kvx::host {

bool limitDatabaseMemory()
{
    sqlite3_hard_heap_limit64(databaseMemory);
    return sqlite3_hard_heap_limit64(-1) == databaseMemory;
}

} // namespace kvx::host
