#include "services/WorkingTime.h"
#include "store/Db.h"
#include "store/WorkingTimeStore.h"

namespace kvx::server {

namespace {

constexpr std::size_t dateLength = 10; // "yyyy-MM-dd"

Reply logWorkingTime(Call &call)
{
    const std::int64_t minutes = call.request().integer("workingTime", 1, 1440);
    WorkingTimeStore times(call.db());
    const std::int64_t granted = times.grant(call.caller().sessionId, minutes, call.now());
    if (granted > 0)
        times.add(call.caller().userId, secondText(wallTime()).substr(0, dateLength), granted);
    return Reply::ok();
}

} // namespace

const ServiceTable workingTimeServices = {
    { "logworkingtime", logWorkingTime, NeedsUser | NamesCallerLower | Writes | JudgedByHttp },
};

} // namespace kvx::server
