#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

// Who may include whom. The plug-in is built against the host's declarations alone; what would
// reach past them compiles here, where everything lies side by side, and fails at the customer's.

namespace fs = std::filesystem;

namespace {

struct Include {
    std::string path;
    bool angled;
    std::string where; // file and line
    fs::path file;
};

const fs::path &root()
{
    static const fs::path path(KVX_SOURCE_DIR);
    return path;
}

// What the line includes, with its brackets or quotes; empty when it is no inclusion.
std::string includedIn(std::string line)
{
    line.erase(
        std::remove_if(line.begin(), line.end(), [](char c) { return c == ' ' || c == '\t'; }),
        line.end());
    static const std::string directive = "#include";
    if (line.rfind(directive, 0) != 0)
        return {};
    const auto end = line.find_first_of(">\"", directive.size() + 1);
    return end == std::string::npos ? std::string()
                                    : line.substr(directive.size(), end + 1 - directive.size());
}

std::vector<Include> includesUnder(const std::string &folder)
{
    std::vector<Include> includes;
    if (!fs::exists(root() / folder))
        return includes;
    for (const auto &entry : fs::recursive_directory_iterator(root() / folder)) {
        const std::string extension = entry.path().extension().string();
        if (extension != ".h" && extension != ".cpp")
            continue;
        std::ifstream stream(entry.path());
        std::string line;
        for (int number = 1; std::getline(stream, line); ++number) {
            const std::string included = includedIn(line);
            if (included.empty())
                continue;
            const std::string where
                = fs::relative(entry.path(), root()).string() + ":" + std::to_string(number);
            includes.push_back({ included.substr(1, included.size() - 2), included[0] == '<', where,
                entry.path() });
        }
    }
    return includes;
}

std::string firstFolder(const std::string &path)
{
    const auto slash = path.find('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool stands(const fs::path &folder, const std::string &path)
{
    return fs::is_regular_file(folder / path);
}

// The folder of the layer that the file belongs to: plugin/<folder>, runtime/<folder> …
std::string layerFolder(const Include &include)
{
    return std::next(fs::relative(include.file, root()).begin())->string();
}

const std::set<std::string> hostLibraries { "KVXCollaboration", "KVXNetwork", "KVXCommon",
    "KVXSQLite", "KVXOCRSDK" };
const std::set<std::string> foreignLibraries { "curl/curl.h", "sqlite3.h", "zip.h", "sodium.h",
    "pugixml.hpp", "zlib.h" };

bool allowedInPlugin(const Include &include)
{
    if (!include.angled) {
        // The entry points make the managers, so they see every one of them.
        if (include.file.filename() == "EntryPoints.cpp")
            return stands(root() / "plugin", include.path);
        const std::string folder = layerFolder(include);
        if (include.path.find('/') == std::string::npos)
            return stands(include.file.parent_path(), include.path);
        return firstFolder(include.path) == folder || firstFolder(include.path) == "frame"
            || include.path == "login/CurrentUser.h"
            || include.path == "messaging/BlockingReceivers.h";
    }
    if (foreignLibraries.count(include.path))
        return false;
    const std::string folder = firstFolder(include.path);
    if (hostLibraries.count(folder))
        return stands(root() / "platform", include.path);
    return folder.empty() || folder == "log4cplus" || folder == "cms" || folder == "sys"
        || include.path == "activemq/library/ActiveMQCPP.h";
}

// Reaches a folder of ours other than those given.
bool reaches(const Include &include, const std::vector<std::string> &folders)
{
    if (!include.angled && stands(include.file.parent_path(), include.path))
        return false;
    return std::any_of(folders.begin(), folders.end(), [&include](const std::string &folder) {
        return stands(root() / folder, include.path) || firstFolder(include.path) == folder;
    });
}

void expectNone(const std::string &folder, const std::vector<std::string> &forbidden)
{
    for (const Include &include : includesUnder(folder)) {
        if (stands(root() / folder, include.path))
            continue;
        EXPECT_FALSE(reaches(include, forbidden)) << include.where << " includes " << include.path;
    }
}

} // namespace

TEST(IncludeDirections, PluginKnowsThePlatformAndItself)
{
    const std::vector<Include> includes = includesUnder("plugin");
    ASSERT_FALSE(includes.empty());
    for (const Include &include : includes)
        EXPECT_TRUE(allowedInPlugin(include)) << include.where << " includes " << include.path;
}

TEST(IncludeDirections, PlatformKnowsOnlyItselfAndPublicLibraries)
{
    const std::vector<Include> includes = includesUnder("platform");
    ASSERT_FALSE(includes.empty());
    for (const Include &include : includes) {
        const std::string folder = firstFolder(include.path);
        const bool own = stands(root() / "platform", include.path);
        EXPECT_TRUE(include.angled && (own || folder.empty() || folder == "log4cplus"))
            << include.where << " includes " << include.path;
    }
}

TEST(IncludeDirections, RuntimeLibrariesKnowThePlatformAndThemselves)
{
    const std::vector<Include> includes = includesUnder("runtime");
    ASSERT_FALSE(includes.empty());
    for (const Include &include : includes) {
        if (include.angled)
            continue;
        const std::string folder = layerFolder(include);
        const bool own = stands(include.file.parent_path(), include.path)
            || (firstFolder(include.path) == folder && stands(root() / "runtime", include.path));
        EXPECT_TRUE(own) << include.where << " includes " << include.path;
    }
    expectNone("runtime", { "plugin", "server", "hosts", "tests" });
}

TEST(IncludeDirections, ServerAndPluginShareNothing)
{
    ASSERT_FALSE(includesUnder("server").empty());
    // Of the broker client it knows the public headers, which stand in a folder below.
    expectNone("server", { "plugin", "platform", "runtime", "openwire", "hosts", "tests" });
}

TEST(IncludeDirections, HostsKnowNeitherThePluginNorTheServer)
{
    expectNone("hosts", { "plugin", "server", "tests" });
}

TEST(IncludeDirections, FailPointsKnowNobody)
{
    ASSERT_FALSE(includesUnder("failpoint").empty());
    expectNone(
        "failpoint", { "plugin", "platform", "runtime", "openwire", "server", "hosts", "tests" });
}

TEST(IncludeDirections, PlatformHostsAndBrokerClientHaveNoFailPoints)
{
    for (const char *folder : { "platform", "hosts", "openwire" }) {
        for (const Include &include : includesUnder(folder))
            EXPECT_NE(include.path, "FailPoint.h") << include.where;
    }
}

TEST(IncludeDirections, BrokerClientKnowsOnlyItself)
{
    expectNone("openwire", { "plugin", "platform", "runtime", "server", "hosts", "tests" });
}
