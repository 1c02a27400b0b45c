#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace kvx::server {

/// A setting that cannot be used; the text names the key and where it was given.
class ConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// "127.0.0.1:8090", "[::1]:8090".
struct HostPort {
    std::string host;
    std::uint16_t port = 0;
};

/// Every setting of the server, with its default. Durations in milliseconds, sizes in bytes.
struct Config {
    std::string data;
    std::string database = "sqlite";
    HostPort listen { "127.0.0.1", 8090 };
    HostPort adminListen { "127.0.0.1", 8091 };
    std::string serverName = "kvx-server";
    bool plainHttpAllowed = false;
    std::vector<std::string> trustedProxies;

    std::string brokerUrl = "tcp://127.0.0.1:61616";
    std::string brokerUser;
    std::string brokerPassword;
    std::uint16_t brokerPublicPort = 61616;
    std::string brokerGuard = "session";

    std::int64_t sessionIdle = 30 * 60'000;
    std::int64_t sessionAbsolute = 12 * 3'600'000;
    std::int64_t sessionPresence = 5 * 60'000;
    int sessionPerUser = 3;
    std::int64_t lockLease = 120'000;
    std::int64_t lockHold = 5'000;

    std::vector<std::string> loginProducts;
    int loginMinApi = 1;
    std::string companyAccount;

    std::int64_t uploadLimit = 512LL << 20;
    std::int64_t requestLimit = 1LL << 20;
    int connectionLimit = 2500;
    int perAddressLimit = 64;
    std::int64_t headerTimeout = 10'000;
    std::int64_t bodyTimeout = 15'000;
    std::int64_t keepAlive = 60'000;
    std::int64_t userQuota = 200LL << 20;
    std::int64_t projectQuota = 1LL << 30;

    std::string projectNamePattern = "Project %n";
    std::string projectCreate = "everyone";
    std::vector<std::string> projectKinds;
    std::int64_t trashDays = 30;
    std::int64_t keepFiles = 3;

    std::int64_t idBlock = 1000;
    std::int64_t idBlockMax = 65536;
    std::int64_t freedDays = 7;
    std::string logsCheck = "archive";
    bool resourceAnonymous = false;

    int ocrWorkers = 2;
    int ocrQueue = 20;
    int ocrPerUser = 2;
    std::vector<std::string> ocrLanguages;
    std::int64_t ocrPageTime = 60'000;
    std::string ocrProgram;
    std::int64_t diskReserve = 1LL << 30;
    std::string timeZone;
    std::int64_t auditDays = 3650;

    std::string logFile;
    std::string logLevel = "info";
    std::string logFormat = "text";
    int threads = 0;
    std::string adminEmail = "admin@localhost";

    std::string databaseFile() const { return data + "/db/kvx.sqlite"; }
    std::string blobFolder() const { return data + "/blobs"; }
    std::string temporaryFolder() const { return data + "/tmp"; }
};

/// One setting as the documentation names it.
struct ConfigKey {
    const char *name;
    const char *meaning;
};

const std::vector<ConfigKey> &configKeys();

/// Sets one key from text; `origin` ("option", "kvx.conf:12", "KVX_LISTEN") stands in errors.
/// Throws ConfigError for an unknown key or a value that does not fit.
void setConfig(
    Config &config, const std::string &key, const std::string &value, const std::string &origin);

/// Lines "key = value"; "#" begins a comment line. Throws ConfigError.
void readConfigFile(Config &config, const std::string &path);

/// Variables "KVX_" + key in upper case with "_" for dots. A variable that begins like one of our
/// keys but is none (KVX_SESSION_IDEL) is an error; foreign KVX_ variables are left alone.
void readConfigEnvironment(Config &config, const std::map<std::string, std::string> &environment);

/// What only the whole shows: data given, plain HTTP beyond loopback allowed, and the like.
void checkConfig(const Config &config);

bool isLoopback(const std::string &host);

} // namespace kvx::server
