#include "base/Config.h"
#include "base/ConfigKeys.h"
#include "base/Text.h"

#include <algorithm>
#include <fstream>
#include <set>

namespace kvx::server {

namespace {

std::string environmentName(const std::string &key)
{
    std::string name = "KVX_";
    for (const char c : key)
        name += c == '.' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name;
}

/// "KVX_SESSION_" of "session.idle"; nothing for keys without a dot.
std::set<std::string> environmentFamilies()
{
    std::set<std::string> families;
    for (const ConfigEntry &entry : configEntries()) {
        const std::string key = entry.key.name;
        const std::size_t dot = key.find('.');
        if (dot != std::string::npos)
            families.insert(environmentName(key.substr(0, dot + 1)));
    }
    return families;
}

} // namespace

const std::vector<ConfigKey> &configKeys()
{
    static const std::vector<ConfigKey> keys = [] {
        std::vector<ConfigKey> all;
        for (const ConfigEntry &entry : configEntries())
            all.push_back(entry.key);
        return all;
    }();
    return keys;
}

void setConfig(
    Config &config, const std::string &key, const std::string &value, const std::string &origin)
{
    const auto &entries = configEntries();
    const auto entry = std::find_if(entries.begin(), entries.end(),
        [&key](const ConfigEntry &candidate) { return key == candidate.key.name; });
    if (entry == entries.end())
        throw ConfigError(origin + ": there is no setting \"" + key + "\"");
    try {
        entry->read(config, value);
    } catch (const std::invalid_argument &error) {
        throw ConfigError(origin + ": " + key + " " + error.what() + ", not \"" + value + "\"");
    }
}

void readConfigFile(Config &config, const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        throw ConfigError(path + ": cannot be read");
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const std::string origin = path + ":" + std::to_string(number);
        const std::string text = trimmed(line);
        if (text.empty() || text.front() == '#')
            continue;
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos)
            throw ConfigError(origin + ": a line is \"key = value\"");
        setConfig(
            config, trimmed(text.substr(0, equals)), trimmed(text.substr(equals + 1)), origin);
    }
}

void readConfigEnvironment(Config &config, const std::map<std::string, std::string> &environment)
{
    std::set<std::string> known { "KVX_BROKER_JAVA_OPTS" }; // kvx-broker's, which lies beside
    for (const ConfigEntry &entry : configEntries()) {
        const std::string name = environmentName(entry.key.name);
        known.insert(name);
        const auto found = environment.find(name);
        if (found != environment.end())
            setConfig(config, entry.key.name, found->second, name);
    }
    const std::set<std::string> families = environmentFamilies();
    for (const auto &[name, value] : environment) {
        const bool ours = std::any_of(families.begin(), families.end(),
            [&name = name](const std::string &family) { return name.rfind(family, 0) == 0; });
        if (ours && known.count(name) == 0)
            throw ConfigError(name + ": there is no such setting");
    }
}

void checkConfig(const Config &config)
{
    if (config.data.empty())
        throw ConfigError("data: the folder of the server's data must be given");
    if (!config.plainHttpAllowed && !isLoopback(config.listen.host))
        throw ConfigError("listen: " + config.listen.host
            + " can be reached from other machines, and passwords would travel in clear; set "
              "http.plain=allow where the network itself is private");
    if (config.adminListen.port != 0 && config.adminListen.port == config.listen.port
        && config.adminListen.host == config.listen.host)
        throw ConfigError("admin.listen: must differ from listen");
    if (config.idBlock > config.idBlockMax)
        throw ConfigError("ids.block: must not be more than ids.blockMax");
}

bool isLoopback(const std::string &host)
{
    return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

} // namespace kvx::server
