#include "services/Password.h"

#include <atomic>
#include <sodium.h>
#include <stdexcept>

namespace kvx::server {

namespace {

// The weakest setting that the OWASP password storage recommendation names for Argon2id.
constexpr std::size_t memoryCost = 19'456 * 1024;
constexpr unsigned long long passes = 2;

std::atomic<std::uint64_t> verified { 0 };

} // namespace

std::string hashPassword(const std::string &password)
{
    char hash[crypto_pwhash_STRBYTES];
    if (crypto_pwhash_str_alg(hash, password.data(), password.size(), passes, memoryCost,
            crypto_pwhash_ALG_ARGON2ID13)
        != 0)
        throw std::runtime_error("no memory to hash a password");
    return hash;
}

bool verifyPassword(const std::string &hash, const std::string &password)
{
    ++verified;
    return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

std::uint64_t verifiedPasswords()
{
    return verified;
}

bool needsRehash(const std::string &hash)
{
    return crypto_pwhash_str_needs_rehash(hash.c_str(), passes, memoryCost) != 0;
}

const std::string &dummyHash()
{
    static const std::string hash = hashPassword(randomPassword(20));
    return hash;
}

std::string randomPassword(std::size_t length)
{
    static constexpr char letters[] = "ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz23456789";
    std::string password(length, '\0');
    for (char &letter : password)
        letter = letters[randombytes_uniform(sizeof letters - 1)];
    return password;
}

} // namespace kvx::server
