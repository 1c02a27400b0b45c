#include "base/ConfigKeys.h"
#include "base/Text.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace kvx::server {

namespace {

using Reader = std::function<void(Config &, const std::string &)>;

struct Unit {
    const char *name;
    std::int64_t factor;
};

std::int64_t parsedQuantity(const std::string &text, std::initializer_list<Unit> units)
{
    std::int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const std::string unit = trimmed(std::string_view(rest, static_cast<std::size_t>(end - rest)));
    std::string known;
    for (const Unit &candidate : units) {
        if (error == std::errc() && unit == candidate.name && number >= 0
            && number <= std::numeric_limits<std::int64_t>::max() / candidate.factor)
            return number * candidate.factor;
        known += std::string(known.empty() ? "" : ", ") + candidate.name;
    }
    throw std::invalid_argument("must be a number with one of the units " + known);
}

Reader duration(std::int64_t Config::*field)
{
    return [field](Config &config, const std::string &text) {
        config.*field = parsedQuantity(
            text, { { "ms", 1 }, { "s", 1000 }, { "min", 60'000 }, { "h", 3'600'000 } });
        if (config.*field == 0)
            throw std::invalid_argument("must be more than nothing");
    };
}

Reader size(std::int64_t Config::*field)
{
    return [field](Config &config, const std::string &text) {
        config.*field = parsedQuantity(
            text, { { "B", 1 }, { "KiB", 1LL << 10 }, { "MiB", 1LL << 20 }, { "GiB", 1LL << 30 } });
    };
}

template <class T> Reader number(T Config::*field, std::int64_t minimum, std::int64_t maximum)
{
    return [=](Config &config, const std::string &text) {
        std::int64_t value = 0;
        const char *end = text.data() + text.size();
        const auto [rest, error] = std::from_chars(text.data(), end, value);
        if (error != std::errc() || rest != end || value < minimum || value > maximum)
            throw std::invalid_argument("must be a number from " + std::to_string(minimum) + " to "
                + std::to_string(maximum));
        config.*field = static_cast<T>(value);
    };
}

Reader text(std::string Config::*field)
{
    return [field](Config &config, const std::string &value) { config.*field = value; };
}

Reader list(std::vector<std::string> Config::*field)
{
    return [field](Config &config, const std::string &value) { config.*field = splitList(value); };
}

Reader choice(std::string Config::*field, std::vector<std::string> choices)
{
    return [field, choices = std::move(choices)](Config &config, const std::string &value) {
        if (std::find(choices.begin(), choices.end(), value) == choices.end()) {
            std::string known;
            for (const std::string &one : choices)
                known += (known.empty() ? "" : ", ") + one;
            throw std::invalid_argument("must be one of " + known);
        }
        config.*field = value;
    };
}

Reader hostPort(HostPort Config::*field)
{
    return [field](Config &config, const std::string &value) {
        const std::size_t colon = value.rfind(':');
        int port = -1;
        if (colon != std::string::npos && colon > 0) {
            const char *end = value.data() + value.size();
            const auto [rest, error] = std::from_chars(value.data() + colon + 1, end, port);
            if (error != std::errc() || rest != end)
                port = -1;
        }
        if (port < 0 || port > 65535)
            throw std::invalid_argument("must be ADDRESS:PORT");
        std::string host = value.substr(0, colon);
        if (host.size() > 2 && host.front() == '[' && host.back() == ']')
            host = host.substr(1, host.size() - 2);
        config.*field = { host, static_cast<std::uint16_t>(port) };
    };
}

Reader flag(bool Config::*field, const char *whenTrue, const char *whenFalse)
{
    return [=](Config &config, const std::string &value) {
        if (value != whenTrue && value != whenFalse)
            throw std::invalid_argument(std::string("must be ") + whenTrue + " or " + whenFalse);
        config.*field = value == whenTrue;
    };
}

} // namespace

const std::vector<ConfigEntry> &configEntries()
{
    static const std::vector<ConfigEntry> entries = {
        { { "data", "folder of the database and the files" }, text(&Config::data) },
        { { "database", "sqlite (in the data folder)" }, choice(&Config::database, { "sqlite" }) },
        { { "listen", "address and port of the services" }, hostPort(&Config::listen) },
        { { "admin.listen", "address and port of the health pages" },
            hostPort(&Config::adminListen) },
        { { "admin.email", "e-mail of the first administrator" }, text(&Config::adminEmail) },
        { { "server.name", "name shown by a search for servers" }, text(&Config::serverName) },
        { { "http.plain", "allow: serve plain HTTP beyond this machine" },
            flag(&Config::plainHttpAllowed, "allow", "loopback") },
        { { "trusted.proxies", "addresses whose X-Forwarded-For is believed" },
            list(&Config::trustedProxies) },
        { { "broker.url", "the broker, as the server reaches it" }, text(&Config::brokerUrl) },
        { { "broker.user", "the server's user at the broker" }, text(&Config::brokerUser) },
        { { "broker.password", "and password" }, text(&Config::brokerPassword) },
        { { "broker.publicPort", "the broker's port, as clients reach it" },
            number(&Config::brokerPublicPort, 1, 65535) },
        { { "broker.guard", "session, address or off" },
            choice(&Config::brokerGuard, { "session", "address", "off" }) },
        { { "session.idle", "a session ends after this time without a request" },
            duration(&Config::sessionIdle) },
        { { "session.absolute", "a session ends after this time" },
            duration(&Config::sessionAbsolute) },
        { { "session.presence", "a user counts as present for this time after a request" },
            duration(&Config::sessionPresence) },
        { { "session.perUser", "sessions of one user at the same time" },
            number(&Config::sessionPerUser, 1, 1000) },
        { { "lock.lease", "a saver's lock without a request" }, duration(&Config::lockLease) },
        { { "lock.hold", "how long a request for a taken lock waits" },
            duration(&Config::lockHold) },
        { { "login.products", "products served; empty: all" }, list(&Config::loginProducts) },
        { { "login.minApi", "oldest API version served" }, number(&Config::loginMinApi, 1, 1) },
        { { "company.account", "account name sent with a login" }, text(&Config::companyAccount) },
        { { "limits.upload", "largest file" }, size(&Config::uploadLimit) },
        { { "limits.request", "largest ordinary request" }, size(&Config::requestLimit) },
        { { "limits.connections", "connections in all" },
            number(&Config::connectionLimit, 1, 1'000'000) },
        { { "limits.perAddress", "connections from one address" },
            number(&Config::perAddressLimit, 1, 1'000'000) },
        { { "limits.headerTime", "time to send the head of a request" },
            duration(&Config::headerTimeout) },
        { { "limits.bodyTime", "longest pause within a body" }, duration(&Config::bodyTimeout) },
        { { "limits.keepAlive", "an idle connection is closed after this time" },
            duration(&Config::keepAlive) },
        { { "quota.user", "space of one user's own files" }, size(&Config::userQuota) },
        { { "quota.project", "space of one project's attachments" }, size(&Config::projectQuota) },
        { { "projects.namePattern", "proposed names, %n is the number" },
            text(&Config::projectNamePattern) },
        { { "projects.create", "everyone or allreadwrite" },
            choice(&Config::projectCreate, { "everyone", "allreadwrite" }) },
        { { "projects.kinds", "further kinds of project" }, list(&Config::projectKinds) },
        { { "projects.trashDays", "removed projects are kept for so many days" },
            number(&Config::trashDays, 0, 36500) },
        { { "projects.keepFiles", "versions of a project file that are kept" },
            number(&Config::keepFiles, 1, 1'000'000) },
        { { "ids.block", "item numbers given at a time" }, number(&Config::idBlock, 2, 1 << 30) },
        { { "ids.blockMax", "and at most" }, number(&Config::idBlockMax, 2, 1 << 30) },
        { { "items.freedDays", "freed items are reported for so many days" },
            number(&Config::freedDays, 1, 36500) },
        { { "logs.check", "archive, changeset or none" },
            choice(&Config::logsCheck, { "archive", "changeset", "none" }) },
        { { "resource.anonymous", "yes: the resource package needs no login" },
            flag(&Config::resourceAnonymous, "yes", "no") },
        { { "ocr.workers", "pages recognised at a time; 0: recognition is off" },
            number(&Config::ocrWorkers, 0, 256) },
        { { "ocr.queue", "jobs waiting" }, number(&Config::ocrQueue, 0, 100'000) },
        { { "ocr.perUser", "jobs of one user" }, number(&Config::ocrPerUser, 1, 1000) },
        { { "ocr.languages", "languages offered; empty: all installed" },
            list(&Config::ocrLanguages) },
        { { "ocr.pageTime", "processor time of one page" }, duration(&Config::ocrPageTime) },
        { { "ocr.program", "program that recognises; empty: kvx-ocr-worker beside the server" },
            text(&Config::ocrProgram) },
        { { "disk.reserve", "space kept free; below it uploads are refused" },
            size(&Config::diskReserve) },
        { { "time.zone", "zone of the dates that users read" }, text(&Config::timeZone) },
        { { "audit.days", "the audit log is kept for so many days" },
            number(&Config::auditDays, 1, 36500) },
        { { "log.file", "log file; empty: standard error" }, text(&Config::logFile) },
        { { "log.level", "debug, info, warning or error" },
            choice(&Config::logLevel, { "debug", "info", "warning", "error" }) },
        { { "log.format", "text or json" }, choice(&Config::logFormat, { "text", "json" }) },
        { { "threads", "threads that serve connections; 0: one a core" },
            number(&Config::threads, 0, 256) },
    };
    return entries;
}

} // namespace kvx::server
