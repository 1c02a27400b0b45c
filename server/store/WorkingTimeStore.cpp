#include "store/WorkingTimeStore.h"
#include "store/Db.h"

#include <algorithm>

namespace kvx::server {

namespace {

constexpr std::int64_t minutesOfDay = 1440;
constexpr std::int64_t lead = 10; // a client may have worked before it logged in
constexpr Time minute = 60'000;

} // namespace

void WorkingTimeStore::add(std::int64_t userId, const std::string &day, std::int64_t minutes)
{
    m_db.run("INSERT INTO working_time (user_id, day, minutes) VALUES (:user, :day, :minutes)"
             " ON CONFLICT (user_id, day) DO UPDATE SET minutes ="
             " CASE WHEN working_time.minutes + :minutes < :most"
             " THEN working_time.minutes + :minutes ELSE :most END",
        { { "user", userId }, { "day", day }, { "minutes", std::min(minutes, minutesOfDay) },
            { "most", minutesOfDay } });
}

std::int64_t WorkingTimeStore::grant(std::int64_t sessionId, std::int64_t minutes, Time now)
{
    const auto session = m_db.row<std::int64_t, Time>(
        "SELECT worked, created FROM session WHERE id = :id", { { "id", sessionId } });
    if (!session)
        return 0;
    const auto &[worked, created] = *session;
    const std::int64_t room = (now - created) / minute + lead - worked;
    const std::int64_t granted
        = std::clamp(minutes, std::int64_t { 0 }, std::max(room, std::int64_t { 0 }));
    m_db.run("UPDATE session SET worked = worked + :granted WHERE id = :id",
        { { "granted", granted }, { "id", sessionId } });
    return granted;
}

std::vector<WorkingTimeStore::Row> WorkingTimeStore::between(
    const std::string &from, const std::string &to)
{
    std::vector<Row> rows;
    m_db.each<std::string, std::string, std::string, std::int64_t>(
        "SELECT w.day, u.email, u.name, w.minutes FROM working_time w"
        " JOIN users u ON u.id = w.user_id WHERE w.day >= :from AND w.day <= :to"
        " ORDER BY w.day, u.email",
        { { "from", from }, { "to", to } },
        [&rows](std::string day, std::string email, std::string name, std::int64_t minutes) {
            rows.push_back({ std::move(day), std::move(email), std::move(name), minutes });
        });
    return rows;
}

} // namespace kvx::server
