#include "StoreSnapshot.h"

#include "../Require.h"

namespace kvx::test {

namespace {

void copyDatabase(sqlite3 *from, sqlite3 *to)
{
    sqlite3_backup *backup = sqlite3_backup_init(to, "main", from, "main");
    require(backup != nullptr, "the database can be copied");
    sqlite3_backup_step(backup, -1);
    require(sqlite3_backup_finish(backup) == SQLITE_OK, "the database is copied");
}

} // namespace

StoreSnapshot::StoreSnapshot(const std::string &dataFolder)
    : m_folder(dataFolder)
    , m_files(files())
{
    const std::string file = dataFolder + "/db/kvx.sqlite";
    require(sqlite3_open(file.c_str(), &m_live) == SQLITE_OK, "the database opens");
    require(sqlite3_open(":memory:", &m_kept) == SQLITE_OK, "there is memory");
    sqlite3_busy_timeout(m_live, 2000);
    sqlite3_exec(m_live, "PRAGMA synchronous=OFF", nullptr, nullptr, nullptr);
    copyDatabase(m_live, m_kept);
    m_version = dataVersion();
}

StoreSnapshot::~StoreSnapshot()
{
    sqlite3_close(m_live);
    sqlite3_close(m_kept);
}

bool StoreSnapshot::isChanged()
{
    return dataVersion() != m_version;
}

void StoreSnapshot::restore()
{
    copyDatabase(m_kept, m_live);
    m_version = dataVersion();
    for (const auto &file : files()) {
        if (m_files.count(file) == 0)
            std::filesystem::remove(file);
    }
}

/// Changes with every commit of another connection.
int StoreSnapshot::dataVersion()
{
    int version = 0;
    sqlite3_exec(
        m_live, "PRAGMA data_version",
        [](void *out, int, char **values, char **) {
            *static_cast<int *>(out) = std::stoi(values[0]);
            return 0;
        },
        &version, nullptr);
    return version;
}

std::set<std::filesystem::path> StoreSnapshot::files() const
{
    std::set<std::filesystem::path> found;
    for (const char *folder : { "blobs", "tmp" }) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(m_folder / folder)) {
            if (entry.is_regular_file())
                found.insert(entry.path());
        }
    }
    return found;
}

} // namespace kvx::test
