#pragma once

#include <functional>
#include <string>

namespace kvx::server {

class Db;

/// Judges the whole store: versions without gaps but for the barriers of a restore, both chains of
/// digests whole, every content there, locks and stages that belong together, item numbers given
/// once, no row without the row it refers to. Reads one snapshot; changes nothing.
class StoreCheck {
public:
    /// `fault` is called with a sentence for everything that is wrong.
    StoreCheck(Db &db, std::string dataFolder, std::function<void(const std::string &)> fault)
        : m_db(db)
        , m_dataFolder(std::move(dataFolder))
        , m_fault(std::move(fault))
    {
    }

    /// `deep` also reads every content and compares its digest.
    void run(bool deep);

private:
    void checkDatabase();
    void checkLogs();
    void checkLocks();
    void checkNumbers();
    void checkRights();
    void checkAudit();
    void checkBlobs(bool deep);

    Db &m_db;
    const std::string m_dataFolder;
    const std::function<void(const std::string &)> m_fault;
};

} // namespace kvx::server
