#include "AdminFixture.h"
#include "support/Watchdog.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

using namespace kvx::test;

namespace {

/// The names under "Subcommands:" of a help text.
std::vector<std::string> commandsIn(const std::string &help)
{
    std::vector<std::string> names;
    std::istringstream lines(help.substr(std::min(help.find("Subcommands:"), help.size())));
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string name;
        if (line.rfind("  ", 0) == 0 && line[2] != ' ' && words >> name)
            names.push_back(name);
    }
    return names;
}

std::set<std::string> commandsOfTheProgram()
{
    std::set<std::string> all;
    for (const std::string &noun : commandsIn(ServerProcess::run({ "--help" }).out)) {
        const std::vector<std::string> verbs
            = commandsIn(ServerProcess::run({ noun, "--help" }).out);
        for (const std::string &verb : verbs)
            all.insert(noun + ' ' + verb);
        if (verbs.empty())
            all.insert(noun);
    }
    return all;
}

struct DocumentedCommand {
    std::string name; ///< "user add"
    std::vector<std::string> example;
};

/// The words of a line as a shell takes them.
std::vector<std::string> shellWords(const std::string &line)
{
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    bool begun = false;
    for (const char c : line + ' ') {
        if (c == '"') {
            quoted = !quoted;
            begun = true;
        } else if (c == ' ' && !quoted) {
            if (begun)
                words.push_back(word);
            word.clear();
            begun = false;
        } else {
            word += c;
            begun = true;
        }
    }
    return words;
}

/// The rows of the table of commands: | `user add EMAIL` … | … | `user add anna@example.com` |
std::vector<DocumentedCommand> documentedCommands()
{
    std::ifstream file(KVX_SERVER_DOCUMENT);
    std::vector<DocumentedCommand> commands;
    std::string line;
    bool inside = false;
    while (std::getline(file, line)) {
        if (line.rfind("| Command ", 0) == 0) {
            inside = true;
            continue;
        }
        inside = inside && line.rfind('|', 0) == 0;
        if (!inside || line.rfind("| `", 0) != 0)
            continue;
        std::istringstream first(line.substr(3, line.find('`', 3) - 3));
        DocumentedCommand command;
        std::string word;
        while (first >> word && word.find_first_not_of("abcdefghijklmnopqrstuvwxyz-") == word.npos)
            command.name += (command.name.empty() ? "" : " ") + word;
        const std::size_t end = line.rfind('`');
        const std::size_t begin = line.rfind('`', end - 1) + 1;
        command.example = shellWords(line.substr(begin, end - begin));
        commands.push_back(std::move(command));
    }
    return commands;
}

using AdminDocument = Administered;

} // namespace

TEST_F(AdminDocument, NamesTheCommandsOfTheProgramAndNoOthers)
{
    std::set<std::string> documented;
    for (const DocumentedCommand &command : documentedCommands())
        EXPECT_TRUE(documented.insert(command.name).second)
            << command.name << " stands there twice";
    EXPECT_EQ(documented, commandsOfTheProgram());
}

TEST_F(AdminDocument, EveryExampleOfTheTableRunsInItsOrder)
{
    Watchdog::allow(110);
    createShared();
    ASSERT_EQ(ben.checkOut("41;42;", 3), 1);
    takeGlobalLock(4);
    ASSERT_EQ(anna.create("Old bridge", 2), 1);
    ASSERT_EQ(server.command({ "project", "remove", "Old bridge" }).exitCode, 0);
    ASSERT_EQ(
        anna.ask("reportTemplateUpload",
                { { "name", "\"Bid summary\"" }, { "type", "1" }, { "projectVersion", "\"1\"" },
                    { "template", "\"e30=\"" }, { "author", "\"Anna Weiss\"" },
                    { "authorEmail", "\"anna@example.com\"" } })
            .statusCode(),
        1);
    const std::string package = server.folder() + "/common.zip";
    std::ofstream(package) << "package";
    for (const DocumentedCommand &command : documentedCommands()) {
        if (command.name == "serve" || command.name == "init")
            continue; // they have tests of their own and would want this one's folder
        std::string name;
        for (std::size_t i = 0; i < 2 && i < command.example.size(); ++i)
            name += (i == 0 ? "" : " ") + command.example[i];
        EXPECT_EQ(name.rfind(command.name, 0), 0U) << "the example of another command: " << name;
        std::vector<std::string> arguments = command.example;
        if (command.name == "session end" && arguments.size() == 3)
            arguments.back()
                = std::to_string(json({ "session", "list" })["sessions"][0]["id"].GetInt64());
        std::replace(arguments.begin(), arguments.end(), std::string("common.zip"), package);
        const CommandResult result = server.command(
            arguments, command.name == "table import" ? "{\"rows\":[]}" : "a password\n");
        EXPECT_EQ(result.exitCode, 0) << command.name << ": " << result.err;
    }
}

TEST_F(AdminDocument, WithoutADatabaseEveryCommandIs3AndSaysWhere)
{
    Watchdog::allow(110);
    const std::string nowhere = server.folder() + "/nowhere";
    for (const DocumentedCommand &command : documentedCommands()) {
        if (command.name == "serve" || command.name == "init")
            continue; // they make it
        std::vector<std::string> arguments = command.example;
        arguments.insert(arguments.end(), { "--data", nowhere, "--json" });
        const AdminAnswer answer(ServerProcess::run(arguments, "a password\n"));
        EXPECT_EQ(answer.exitCode, 3) << command.name << answer.text;
        EXPECT_TRUE(has(answer["error"].GetString(), "kvx.sqlite")) << answer.text;
    }
}

TEST_F(AdminDocument, WhatIsNotUnderstoodIs2AlsoAsJson)
{
    for (const DocumentedCommand &command : documentedCommands()) {
        std::vector<std::string> arguments = command.example;
        arguments.emplace_back("--nosuch");
        EXPECT_EQ(server.command(arguments).exitCode, 2) << command.name;
    }
    const AdminAnswer answer = json({ "user", "nosuch" });
    EXPECT_EQ(answer.exitCode, 2);
    EXPECT_TRUE(has(answer["error"].GetString(), "nosuch")) << answer.text;
    EXPECT_EQ(server.command({ "user", "delete", "\xFF" }).exitCode, 2);
}
