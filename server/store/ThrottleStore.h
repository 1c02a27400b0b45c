#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::server {

class Db;

/// What a try of a password is allowed: its row, which stands until the password proves right, and
/// the tries that are left when it proves wrong.
struct LoginTry {
    std::int64_t row = 0;
    int left = 0;
    /// Nothing was counted: others from that address are being looked at, and could use up what is
    /// left. A whole company may log in at one moment from one address.
    bool mustWait = false;
};

/// Counts a try before the password is looked at, so that tries made at the same time are counted
/// too. Nothing when no try is left: 5 in 10 minutes for an account from one address, 50 an hour
/// for an account, 30 in 10 minutes from an address. Accounts that do not exist count alike. A try
/// that is not judged within a minute was never answered, and counts no more.
std::optional<LoginTry> beginLoginTry(
    Db &db, Time now, const std::string &email, const std::string &address);

/// The password was wrong.
void judgeWrong(Db &db, std::int64_t row);

/// The password was not looked at.
void takeBackTry(Db &db, std::int64_t row);

/// The password was right: that account's failures from that address are forgotten.
void forgetFailures(Db &db, const std::string &email, const std::string &address);

/// Rows too old to count.
std::int64_t dropFailuresBefore(Db &db, Time before);

constexpr Time longestThrottleWindow = 3'600'000;

} // namespace kvx::server
