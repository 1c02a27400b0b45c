#pragma once

#include <cstdint>
#include <string>

namespace kvx::server {

/// Argon2id, 19 MiB, two passes, with its parameters and salt in the text. Takes tens of
/// milliseconds on purpose: not for a thread that others wait for.
std::string hashPassword(const std::string &password);

bool verifyPassword(const std::string &hash, const std::string &password);

/// How many passwords this process has verified: each costs the same, right or wrong. Any thread.
std::uint64_t verifiedPasswords();

/// Whether the hash was made with other parameters than hashPassword's.
bool needsRehash(const std::string &hash);

/// A valid hash of no known password: unknown accounts cost the same time as known ones.
const std::string &dummyHash();

/// Random, of letters and digits that are not mistaken for one another.
std::string randomPassword(std::size_t length);

} // namespace kvx::server
