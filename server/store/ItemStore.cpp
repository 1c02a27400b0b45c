#include "store/ItemStore.h"
#include "store/Db.h"

#include <algorithm>

namespace kvx::server {

using I = std::int64_t;

std::int64_t ItemStore::nextSequence()
{
    return nextKey(m_db, "item change");
}

std::vector<ItemStore::Item> ItemStore::of(Place place, const std::vector<std::int64_t> &ids)
{
    std::vector<Item> found;
    if (ids.empty())
        return found;
    // One range where the numbers lie close together, as they do in a block; else one by one.
    if (ids.back() - ids.front() < 4 * static_cast<I>(ids.size())) {
        auto wanted = ids.begin();
        m_db.each<I, I, I>(
            "SELECT item_id, user_id, state FROM item WHERE project_id = :project"
            " AND module = :module AND item_id BETWEEN :first AND :last ORDER BY item_id",
            { { "project", place.projectId }, { "module", place.module }, { "first", ids.front() },
                { "last", ids.back() } },
            [&](I id, I user, I state) {
                wanted = std::lower_bound(wanted, ids.end(), id);
                if (wanted != ids.end() && *wanted == id)
                    found.push_back({ id, user, state != 0 });
            });
        return found;
    }
    for (const I wanted : ids) {
        m_db.each<I, I>("SELECT user_id, state FROM item WHERE project_id = :project"
                        " AND module = :module AND item_id = :id",
            { { "project", place.projectId }, { "module", place.module }, { "id", wanted } },
            [&](I user, I state) {
                found.push_back({ wanted, user, state != 0 });
            });
    }
    return found;
}

std::vector<ItemStore::Item> ItemStore::picture(Place place, std::int64_t sequence)
{
    std::vector<Item> found;
    m_db.each<I, I>("SELECT item_id, user_id FROM item WHERE project_id = :project"
                    " AND module = :module AND state = 1 ORDER BY item_id",
        { { "project", place.projectId }, { "module", place.module } }, [&](I id, I user) {
            found.push_back({ id, user, true });
        });
    m_db.each<I, I>("SELECT item_id, user_id FROM item WHERE project_id = :project"
                    " AND module = :module AND seq > :sequence AND state = 0 ORDER BY item_id",
        { { "project", place.projectId }, { "module", place.module }, { "sequence", sequence } },
        [&](I id, I user) {
            found.push_back({ id, user, false });
        });
    return found;
}

std::vector<ItemStore::Item> ItemStore::picture(Place place, Time since, std::int64_t maximum)
{
    std::vector<Item> found;
    m_db.each<I, I>("SELECT item_id, user_id FROM item WHERE project_id = :project"
                    " AND module = :module AND state = 1 ORDER BY item_id",
        { { "project", place.projectId }, { "module", place.module } }, [&](I id, I user) {
            found.push_back({ id, user, true });
        });
    m_db.each<I, I>(
        "SELECT item_id, user_id FROM item WHERE project_id = :project"
        " AND module = :module AND state = 0 AND at >= :since ORDER BY seq DESC, item_id"
        " LIMIT :maximum",
        { { "project", place.projectId }, { "module", place.module }, { "since", since },
            { "maximum", maximum } },
        [&](I id, I user) {
            found.push_back({ id, user, false });
        });
    return found;
}

std::int64_t ItemStore::lastSequence(Place place)
{
    return m_db
        .value<I>("SELECT COALESCE(MAX(seq), 0) FROM item WHERE project_id = :project"
                  " AND module = :module",
            { { "project", place.projectId }, { "module", place.module } })
        .value_or(0);
}

void ItemStore::checkOut(
    Place place, const std::vector<std::int64_t> &ids, std::int64_t userId, Time now)
{
    const I sequence = nextSequence();
    for (const I id : ids) {
        m_db.run(
            "INSERT INTO item (project_id, module, item_id, user_id, state, at, seq)"
            " VALUES (:project, :module, :id, :user, 1, :now, :sequence)"
            " ON CONFLICT (project_id, module, item_id) DO UPDATE SET user_id = excluded.user_id,"
            " state = 1, at = excluded.at, seq = excluded.seq",
            { { "project", place.projectId }, { "module", place.module }, { "id", id },
                { "user", userId }, { "now", now }, { "sequence", sequence } });
    }
}

void ItemStore::checkIn(Place place, const std::vector<std::int64_t> &ids, Time now)
{
    const I sequence = nextSequence();
    for (const I id : ids) {
        m_db.run("UPDATE item SET state = 0, at = :now, seq = :sequence WHERE project_id = :project"
                 " AND module = :module AND item_id = :id",
            { { "now", now }, { "sequence", sequence }, { "project", place.projectId },
                { "module", place.module }, { "id", id } });
    }
}

std::vector<std::int64_t> ItemStore::checkInAll(
    std::int64_t projectId, std::int64_t userId, Time now)
{
    std::vector<I> modules;
    m_db.each<I>("SELECT DISTINCT module FROM item WHERE project_id = :project AND user_id = :user"
                 " AND state = 1 ORDER BY module",
        { { "project", projectId }, { "user", userId } },
        [&modules](I module) { modules.push_back(module); });
    if (!modules.empty()) {
        m_db.run("UPDATE item SET state = 0, at = :now, seq = :sequence WHERE project_id = :project"
                 " AND user_id = :user AND state = 1",
            { { "now", now }, { "sequence", nextSequence() }, { "project", projectId },
                { "user", userId } });
    }
    return modules;
}

void ItemStore::checkInProject(std::int64_t projectId, Time now)
{
    m_db.run("UPDATE item SET state = 0, at = :now, seq = :sequence WHERE project_id = :project"
             " AND state = 1",
        { { "now", now }, { "sequence", nextSequence() }, { "project", projectId } });
}

bool ItemStore::everHeld(std::int64_t projectId, std::int64_t userId)
{
    return m_db
        .value<I>("SELECT 1 FROM item WHERE project_id = :project AND user_id = :user LIMIT 1",
            { { "project", projectId }, { "user", userId } })
        .has_value();
}

std::vector<ItemStore::CheckedOut> ItemStore::checkedOut(std::int64_t projectId)
{
    std::vector<CheckedOut> found;
    m_db.each<I, I, I, I>("SELECT module, item_id, user_id, at FROM item"
                          " WHERE project_id = :project AND state = 1 ORDER BY module, item_id",
        { { "project", projectId } }, [&found](I module, I id, I user, I at) {
            found.push_back({ module, id, user, at });
        });
    return found;
}

} // namespace kvx::server
