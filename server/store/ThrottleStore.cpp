#include "store/ThrottleStore.h"
#include "store/Db.h"

#include <algorithm>

namespace kvx::server {

namespace {

constexpr Time tenMinutes = 600'000;
constexpr std::int64_t perAccountAndAddress = 5;
constexpr std::int64_t perAccount = 50;
constexpr std::int64_t perAddress = 30;
constexpr Time longestJudging = 60'000;

} // namespace

std::optional<LoginTry> beginLoginTry(
    Db &db, Time now, const std::string &email, const std::string &address)
{
    const Time begun = now - longestJudging;
    const auto both = db.value<std::int64_t>(
        "SELECT count(*) FROM login_failure WHERE email = :email AND address = :address "
        "AND at > :since AND (judged = 1 OR at > :begun)",
        { { "email", email }, { "address", address }, { "since", now - tenMinutes },
            { "begun", begun } });
    const auto account = db.value<std::int64_t>("SELECT count(*) FROM login_failure WHERE "
                                                "email = :email AND at > :since "
                                                "AND (judged = 1 OR at > :begun)",
        { { "email", email }, { "since", now - longestThrottleWindow }, { "begun", begun } });
    const auto place = db.value<std::int64_t>("SELECT count(*) FROM login_failure WHERE "
                                              "address = :address AND at > :since AND judged = 1",
        { { "address", address }, { "since", now - tenMinutes } });
    const std::int64_t left
        = std::min({ perAccountAndAddress - *both, perAccount - *account, perAddress - *place });
    if (left <= 0)
        return std::nullopt;
    const auto underWay = db.value<std::int64_t>("SELECT count(*) FROM login_failure WHERE "
                                                 "address = :address AND at > :begun "
                                                 "AND judged = 0",
        { { "address", address }, { "begun", begun } });
    if (*place + *underWay >= perAddress)
        return LoginTry { 0, 0, true };
    const std::int64_t row = nextKey(db, "login_failure");
    db.run("INSERT INTO login_failure (id, email, address, at) VALUES (:id, :email, :address, :at)",
        { { "id", row }, { "email", email }, { "address", address }, { "at", now } });
    return LoginTry { row, static_cast<int>(left - 1), false };
}

void judgeWrong(Db &db, std::int64_t row)
{
    db.run("UPDATE login_failure SET judged = 1 WHERE id = :id", { { "id", row } });
}

void takeBackTry(Db &db, std::int64_t row)
{
    db.run("DELETE FROM login_failure WHERE id = :id", { { "id", row } });
}

void forgetFailures(Db &db, const std::string &email, const std::string &address)
{
    db.run("DELETE FROM login_failure WHERE email = :email AND address = :address",
        { { "email", email }, { "address", address } });
}

std::int64_t dropFailuresBefore(Db &db, Time before)
{
    return db.run("DELETE FROM login_failure WHERE at < :before", { { "before", before } });
}

} // namespace kvx::server
