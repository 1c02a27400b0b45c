#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// Which items of a project are checked out, and by whom. Items without a row are free.
class ItemStore {
public:
    explicit ItemStore(Db &db)
        : m_db(db)
    {
    }

    struct Item {
        std::int64_t id = 0;
        std::int64_t userId = 0; ///< holder, or the last one where free
        bool checkedOut = false;
    };

    struct Place {
        std::int64_t projectId;
        std::int64_t module;
    };
    /// The rows of those items that have one. `ids` and the result are in ascending order.
    std::vector<Item> of(Place place, const std::vector<std::int64_t> &ids);
    /// Every item checked out, and every one freed after `sequence`.
    std::vector<Item> picture(Place place, std::int64_t sequence);
    /// Whether that is at most `most` of each kind.
    bool isPictureSmall(Place place, std::int64_t sequence, std::int64_t most);
    /// Every item checked out, and the newest `maximum` of those freed since `since`.
    std::vector<Item> picture(Place place, Time since, std::int64_t maximum);
    /// The number of the last change of any item of any project, 0 before any.
    std::int64_t lastSequence();

    /// Items in ascending order become the user's.
    void checkOut(Place place, const std::vector<std::int64_t> &ids, std::int64_t userId, Time now);
    /// Items that have a row become free.
    void checkIn(Place place, const std::vector<std::int64_t> &ids, Time now);

    /// Frees everything the user has in the project; the modules it was in.
    std::vector<std::int64_t> checkInAll(std::int64_t projectId, std::int64_t userId, Time now);
    /// Frees everything in the project.
    void checkInProject(std::int64_t projectId, Time now);
    /// Whether the user has, or was the last who had, any item there.
    bool everHeld(std::int64_t projectId, std::int64_t userId);

    struct CheckedOut {
        std::int64_t module;
        std::int64_t id;
        std::int64_t userId;
        Time at;
    };
    /// Everything checked out in the project, by module and item.
    std::vector<CheckedOut> checkedOut(std::int64_t projectId);

private:
    std::int64_t nextSequence();
    Db &m_db;
};

} // namespace kvx::server
