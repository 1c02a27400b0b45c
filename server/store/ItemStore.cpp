#include "store/ItemStore.h"
#include "store/Db.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

namespace kvx::server {

using I = std::int64_t;

namespace {

constexpr std::string_view sequenceName = "item change";

/// One statement for many items, in a few sizes: each size is prepared once, and ten thousand items
/// are fifty statements.
class Batches {
public:
    struct Change {
        ItemStore::Place place;
        I userId;
        Time now;
        I sequence;
    };

    /// An item's number stands between before and after, the items are parted by commas. Of the
    /// change, :project, :module, :now and :sequence are bound, and :user where it is named.
    Batches(const std::string &begin, const std::string &before, const std::string &after,
        const std::string &end)
        : m_namesUser(after.find(":user") != std::string::npos)
    {
        for (std::size_t i = 0; i < largest; ++i)
            m_names.push_back("id" + std::to_string(i));
        for (const std::size_t size : { largest, small, one }) {
            std::string text = begin;
            for (std::size_t i = 0; i < size; ++i)
                text.append(i ? ", " : "")
                    .append(before)
                    .append(":")
                    .append(m_names[i])
                    .append(after);
            m_texts[size] = text.append(end);
        }
    }

    void run(Db &db, const std::vector<I> &ids, const Change &change) const
    {
        const I *next = ids.data();
        const I *end = next + ids.size();
        next = runAll<largest>(db, next, end, change);
        next = runAll<small>(db, next, end, change);
        runAll<one>(db, next, end, change);
    }

private:
    static constexpr std::size_t largest = 200;
    static constexpr std::size_t small = 20;
    static constexpr std::size_t one = 1;

    template <std::size_t Size>
    const I *runAll(Db &db, const I *next, const I *end, const Change &change) const
    {
        for (; end - next >= static_cast<std::ptrdiff_t>(Size); next += Size)
            runOne(db, m_texts.at(Size), next, change, std::make_index_sequence<Size>());
        return next;
    }

    template <std::size_t... At>
    void runOne(Db &db, const std::string &text, const I *ids, const Change &change,
        std::index_sequence<At...>) const
    {
        if (m_namesUser) {
            db.run(text,
                { { "project", change.place.projectId }, { "module", change.place.module },
                    { "user", change.userId }, { "now", change.now },
                    { "sequence", change.sequence }, { m_names[At].c_str(), ids[At] }... });
        } else {
            db.run(text,
                { { "project", change.place.projectId }, { "module", change.place.module },
                    { "now", change.now }, { "sequence", change.sequence },
                    { m_names[At].c_str(), ids[At] }... });
        }
    }

    const bool m_namesUser;
    std::vector<std::string> m_names;
    std::map<std::size_t, std::string> m_texts;
};

} // namespace

std::int64_t ItemStore::nextSequence()
{
    return nextKey(m_db, sequenceName);
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

bool ItemStore::isPictureSmall(Place place, std::int64_t sequence, std::int64_t most)
{
    const auto held
        = m_db.value<I>("SELECT COUNT(*) FROM (SELECT item_id FROM item WHERE project_id = :project"
                        " AND module = :module AND state = 1 LIMIT :limit) AS held",
            { { "project", place.projectId }, { "module", place.module }, { "limit", most + 1 } });
    const auto freed = m_db.value<I>(
        "SELECT COUNT(*) FROM (SELECT item_id FROM item WHERE project_id = :project"
        " AND module = :module AND seq > :sequence AND state = 0 LIMIT :limit) AS freed",
        { { "project", place.projectId }, { "module", place.module }, { "sequence", sequence },
            { "limit", most + 1 } });
    return held.value_or(0) <= most && freed.value_or(0) <= most;
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

std::int64_t ItemStore::lastSequence()
{
    return m_db.value<I>(
                   "SELECT next FROM counter WHERE name = :name", { { "name", sequenceName } })
               .value_or(1)
        - 1;
}

void ItemStore::checkOut(
    Place place, const std::vector<std::int64_t> &ids, std::int64_t userId, Time now)
{
    static const Batches statements(
        "INSERT INTO item"
        " (project_id, module, item_id, user_id, state, at, seq) VALUES ",
        "(:project, :module, ", ", :user, 1, :now, :sequence)",
        " ON CONFLICT (project_id, module, item_id) DO UPDATE SET user_id = excluded.user_id,"
        " state = 1, at = excluded.at, seq = excluded.seq");
    statements.run(m_db, ids, { place, userId, now, nextSequence() });
    m_db.run("INSERT INTO item_holder (project_id, user_id) VALUES (:project, :user)"
             " ON CONFLICT (project_id, user_id) DO NOTHING",
        { { "project", place.projectId }, { "user", userId } });
}

void ItemStore::checkIn(Place place, const std::vector<std::int64_t> &ids, Time now)
{
    static const Batches statements("UPDATE item SET state = 0, at = :now, seq = :sequence"
                                    " WHERE project_id = :project AND module = :module"
                                    " AND item_id IN (",
        "", "", ")");
    statements.run(m_db, ids, { place, 0, now, nextSequence() });
}

std::vector<std::int64_t> ItemStore::checkInAll(
    std::int64_t projectId, std::int64_t userId, Time now)
{
    std::vector<I> modules;
    if (!everHeld(projectId, userId))
        return modules;
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
        .value<I>("SELECT 1 FROM item_holder WHERE project_id = :project AND user_id = :user",
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
