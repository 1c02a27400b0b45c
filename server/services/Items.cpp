#include "services/Items.h"
#include "base/Config.h"
#include "services/Access.h"
#include "services/ItemIds.h"
#include "services/ServiceMemory.h"
#include "store/Db.h"
#include "store/ItemStore.h"
#include "store/ProjectStore.h"
#include "store/UserStore.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <map>
#include <unordered_map>

namespace kvx::server {

namespace {

using Ids = std::vector<std::int64_t>;

constexpr std::size_t mostShown = 10'000;
constexpr std::int64_t mostFreed = 50'000;
/// So many are listed in a fraction of a millisecond.
constexpr std::int64_t mostAtOnce = 200;

std::int64_t moduleOf(const Request &request)
{
    return request.integer("ModuleType", std::numeric_limits<std::int32_t>::min(),
        std::numeric_limits<std::int32_t>::max());
}

/// "CheckoutInfo" as it grows; what follows an item's number is the same for each (user, state).
class InfoList {
public:
    explicit InfoList(Db &db)
        : m_db(db)
    {
    }

    void add(std::int64_t id, std::int64_t userId, bool checkedOut)
    {
        if (m_json.size() > 1)
            m_json += ',';
        m_json += "{\"ID\":";
        m_json += std::to_string(id);
        m_json += tail(userId, checkedOut);
    }
    std::string json() const { return m_json + ']'; }

private:
    const std::string &tail(std::int64_t userId, bool checkedOut)
    {
        std::string &text = m_tails[{ userId, checkedOut }];
        if (text.empty()) {
            const auto user = userId ? findUser(m_db, userId) : std::nullopt;
            text = ",\"Email\":" + jsonText(user ? user->email : "") + ",\"Name\":"
                + jsonText(user ? user->name : "") + ",\"State\":" + (checkedOut ? "1}" : "0}");
        }
        return text;
    }

    Db &m_db;
    std::string m_json = "[";
    std::map<std::pair<std::int64_t, bool>, std::string> m_tails;
};

bool isForeign(const ItemStore::Item &item, std::int64_t userId)
{
    return item.checkedOut && item.userId != userId;
}

/// The true state of the items, those held by others first; an item without a row is free.
std::string trueState(Call &call, const Ids &ids, const std::vector<ItemStore::Item> &items)
{
    InfoList list(call.db());
    std::size_t shown = 0;
    for (const auto &item : items) {
        if (isForeign(item, call.caller().userId) && shown++ < mostShown)
            list.add(item.id, item.userId, true);
    }
    auto item = items.begin();
    for (const std::int64_t id : ids) {
        const bool known = item != items.end() && item->id == id;
        const ItemStore::Item state = known ? *item++ : ItemStore::Item { id, 0, false };
        if (!isForeign(state, call.caller().userId) && shown++ < mostShown)
            list.add(id, state.userId, state.checkedOut);
    }
    return list.json();
}

/// How many of the items are checked out by others.
std::int64_t foreignCount(const std::vector<ItemStore::Item> &items, std::int64_t userId)
{
    return std::count_if(
        items.begin(), items.end(), [userId](const auto &item) { return isForeign(item, userId); });
}

Reply refusedWith(StatusCode code, std::vector<std::string> arguments, const std::string &info)
{
    return Reply::refused(code, std::move(arguments)).setJson("CheckoutInfo", info);
}

/// The module's state: what is checked out, and what was freed since the caller heard of it last.
Reply picture(Call &call, std::int64_t module, bool notify)
{
    const ProjectAccess &project = call.project();
    ItemStore store(call.db());
    const ItemStore::Place place { project.id, module };
    const ItemsTold::Listener listener { call.connectionId(), call.caller().sessionId, project.id,
        module };
    // Behind a proxy a connection is not one client's alone.
    const bool direct = call.config().trustedProxies.empty();
    const auto told = direct ? call.memory().itemsTold.upTo(listener) : std::nullopt;
    if (call.isLight() && !(told && store.isPictureSmall(place, *told, mostAtOnce)))
        return Reply::heavy();
    const Time freedAfter = call.now() - call.config().freedDays * 24 * 3'600'000;
    const auto items
        = told ? store.picture(place, *told) : store.picture(place, freedAfter, mostFreed);
    // With an announcement the request writes: it may fail yet, and then nothing is told.
    if (direct && !call.request().flag("NotifyOther"))
        call.memory().itemsTold.note(listener, store.lastSequence());

    InfoList list(call.db());
    for (const auto &item : items)
        list.add(item.id, item.userId, item.checkedOut);
    if (notify)
        announceItems(call, project.id, project.guid, "CheckOut", module);
    return Reply::ok().setJson("CheckoutInfo", list.json());
}

Reply checkOut(Call &call)
{
    const ProjectAccess &project = call.project();
    const std::int64_t module = moduleOf(call.request());
    const bool notify = call.request().flag("NotifyOther") && project.canWrite();
    const Ids ids = parseItemIds(call.request().text("IDs"));
    if (ids.empty())
        return picture(call, module, notify && !isInMaintenance(call));
    if (const auto refusal = refuseOpenElsewhere(call, project.id))
        return *refusal;

    const std::int64_t user = call.caller().userId;
    const ItemStore::Place place { project.id, module };
    ItemStore store(call.db());
    const auto items = store.of(place, ids);
    if (const std::int64_t foreign = foreignCount(items, user)) {
        return refusedWith(StatusCode::CheckedOutByOthers, { std::to_string(foreign) },
            trueState(call, ids, items));
    }
    InfoList list(call.db());
    Ids wanted;
    wanted.reserve(ids.size());
    auto item = items.begin();
    for (const std::int64_t id : ids) {
        const bool known = item != items.end() && item->id == id;
        if (!known || !item->checkedOut)
            wanted.push_back(id);
        if (known)
            ++item;
        list.add(id, user, true);
    }
    if (!wanted.empty())
        store.checkOut(place, wanted, user, call.now());
    if (notify)
        announceItems(call, project.id, project.guid, "CheckOut", module);
    return Reply::ok().setJson("CheckoutInfo", list.json());
}

/// An empty list asks for the picture, which is reading; the announcement that may go with it is
/// left out in maintenance.
ServiceRule rulesOfCheckOut(const Request &request)
{
    const Json *ids = request.find("IDs");
    if (!ids || !ids->IsString() || ids->GetStringLength() > 0)
        return ProjectWriter | Unlocked | Writes;
    const Json *notify = request.find("NotifyOther");
    return notify && notify->IsTrue() ? Writes | InMaintenance : Light;
}

Reply checkIn(Call &call)
{
    const ProjectAccess &project = call.project();
    const std::int64_t module = moduleOf(call.request());
    const Ids ids = parseItemIds(call.request().text("IDs"));
    const ItemStore::Place place { project.id, module };
    ItemStore store(call.db());
    const auto items = store.of(place, ids);
    const std::int64_t foreign = foreignCount(items, call.caller().userId);
    if (foreign > 0 && !isAdministrator(call)) {
        return refusedWith(
            StatusCode::NotYourItems, { std::to_string(foreign) }, trueState(call, ids, items));
    }
    Ids held;
    for (const auto &item : items) {
        if (item.checkedOut)
            held.push_back(item.id);
    }
    if (!held.empty())
        store.checkIn(place, held, call.now());
    if (!ids.empty())
        announceItems(call, project.id, project.guid, "CheckIn", module);
    return Reply::ok();
}

// A former holder may have lost his access.
Reply checkInAll(Call &call)
{
    const std::string guid = call.request().guid("ProjectGUID");
    const auto project = ProjectStore(call.db()).find(guid);
    ItemStore store(call.db());
    if (!project || project->isRemoved()
        || (!call.hasProject() && !store.everHeld(project->id, call.caller().userId)))
        return Reply::refused(StatusCode::NoSuchProject);
    for (const std::int64_t module :
        store.checkInAll(project->id, call.caller().userId, call.now()))
        announceItems(call, project->id, project->guid, "CheckIn", module);
    return Reply::ok();
}

/// Whether users may write in a project, each looked up once.
class Writers {
public:
    Writers(Db &db, const ProjectAccess &project)
        : m_db(db)
        , m_project(project)
    {
    }
    bool contain(std::int64_t userId)
    {
        const auto [found, isNew] = m_known.try_emplace(userId, false);
        if (isNew)
            found->second = levelOf(m_db, m_project.id, m_project.kind, userId) >= 1;
        return found->second;
    }

private:
    Db &m_db;
    const ProjectAccess &m_project;
    std::unordered_map<std::int64_t, bool> m_known;
};

Reply copyCheckState(Call &call)
{
    const auto from = call.findProject(call.request().guid("oldProjectGuid"));
    const ProjectAccess &to = call.project();
    ItemStore store(call.db());
    Writers writers(call.db(), to);
    std::map<std::int64_t, std::map<std::int64_t, Ids>> wanted; // module, holder
    for (const auto &item : store.checkedOut(from->id)) {
        if (writers.contain(item.userId))
            wanted[item.module][item.userId].push_back(item.id);
    }
    for (const auto &[module, holders] : wanted) {
        bool changed = false;
        for (const auto &[userId, ids] : holders) {
            Ids taken;
            for (const auto &item : store.of({ to.id, module }, ids)) {
                if (item.checkedOut)
                    taken.push_back(item.id);
            }
            Ids free;
            std::set_difference(
                ids.begin(), ids.end(), taken.begin(), taken.end(), std::back_inserter(free));
            if (!free.empty())
                store.checkOut({ to.id, module }, free, userId, call.now());
            changed = changed || !free.empty();
        }
        if (changed)
            announceItems(call, to.id, to.guid, "CheckOut", module);
    }
    return Reply::ok();
}

} // namespace

const ServiceTable itemServices = {
    { "checkout", checkOut, ProjectReader | NamesCaller | LargeBody | ListsItems, nullptr,
        rulesOfCheckOut },
    { "checkin", checkIn, ProjectWriter | NamesCaller | LargeBody | Writes | InMaintenance },
    { "checkinall", checkInAll, ProjectReader | MayBeGone | NamesCaller | Writes | InMaintenance },
    { "copycheckstate", copyCheckState,
        BetweenProjects | ProjectOwner | ProjectWriter | Unlocked | Writes },
};

} // namespace kvx::server
