#include "store/ThrottleStore.h"
#include "store/Db.h"

#include <algorithm>

namespace kvx::server {

namespace {

constexpr Time tenMinutes = 600'000;
constexpr std::int64_t perAccountAndAddress = 5;
constexpr std::int64_t perAccount = 50;
constexpr std::int64_t perAddress = 30;

} // namespace

std::optional<LoginTry> beginLoginTry(
    Db &db, Time now, const std::string &email, const std::string &address)
{
    const auto both = db.value<std::int64_t>("SELECT count(*) FROM login_failure WHERE email = "
                                             ":email AND address = :address AND at > :since",
        { { "email", email }, { "address", address }, { "since", now - tenMinutes } });
    const auto account = db.value<std::int64_t>(
        "SELECT count(*) FROM login_failure WHERE email = :email AND at > :since",
        { { "email", email }, { "since", now - longestThrottleWindow } });
    const auto place = db.value<std::int64_t>(
        "SELECT count(*) FROM login_failure WHERE address = :address AND at > :since",
        { { "address", address }, { "since", now - tenMinutes } });
    const std::int64_t left
        = std::min({ perAccountAndAddress - *both, perAccount - *account, perAddress - *place });
    if (left <= 0)
        return std::nullopt;
    const std::int64_t row = nextKey(db, "login_failure");
    db.run("INSERT INTO login_failure (id, email, address, at) VALUES (:id, :email, :address, :at)",
        { { "id", row }, { "email", email }, { "address", address }, { "at", now } });
    return LoginTry { row, static_cast<int>(left - 1) };
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
