#include "admin/CommandLine.h"
#include "admin/AdminSession.h"
#include "admin/DataFolder.h"
#include "admin/Serve.h"
#include "admin/Verify.h"
#include "base/Config.h"
#include "base/JsonText.h"
#include "base/Text.h"
#include "http/HttpServer.h"
#include "store/Db.h"
#include "store/Migrations.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <iostream>
#include <sodium.h>
#include <unistd.h>

namespace kvx::server {

namespace {

struct Options {
    std::string configFile;
    std::map<std::string, std::string> settings;
    bool json = false;
    ServeOptions serve;
    bool dryRun = false;
    bool deep = false;
};

/// A command of the tables as the command line knows it.
struct ParsedCommand {
    const AdminCommand *command;
    CLI::App *app;
    std::vector<std::pair<const CommandOption *, CLI::Option *>> options;
};

Config gatherConfig(const Options &options)
{
    Config config;
    std::map<std::string, std::string> environment;
    for (char **entry = environ; *entry; ++entry) {
        const char *equals = std::strchr(*entry, '=');
        if (equals && std::strncmp(*entry, "KVX_", 4) == 0)
            environment[std::string(static_cast<const char *>(*entry), equals)] = equals + 1;
    }
    if (!options.configFile.empty())
        readConfigFile(config, options.configFile);
    readConfigEnvironment(config, environment);
    for (const auto &[key, value] : options.settings)
        setConfig(config, key, value, "--" + key);
    checkConfig(config);
    if (!config.timeZone.empty())
        setenv("TZ", config.timeZone.c_str(), 1);
    tzset();
    return config;
}

/// A sub-command under which the settings of the whole program may stand too.
CLI::App *addCommand(CLI::App &parent, const char *name, const char *meaning)
{
    CLI::App *command = parent.add_subcommand(name, meaning);
    command->fallthrough();
    return command;
}

constexpr int mostWords = 100'000;

std::string wholeNumber(const std::string &text)
{
    const std::size_t digits = text.size() - (text.rfind('-', 0) == 0 ? 1 : 0);
    const bool fits = digits > 0 && digits <= 18
        && text.find_first_not_of("0123456789", text.size() - digits) == std::string::npos;
    return fits ? "" : '"' + text + "\" is not a whole number";
}

CLI::Option *addOption(CLI::App &app, const CommandOption &option)
{
    if (option.takes == CommandOption::Flag)
        return app.add_flag(option.name, option.meaning);
    const bool many
        = option.takes == CommandOption::Texts || option.takes == CommandOption::Numbers;
    const bool number
        = option.takes == CommandOption::Number || option.takes == CommandOption::Numbers;
    CLI::Option *added = app.add_option(option.name, option.meaning)->required(option.isRequired());
    added->type_name(number ? "NUMBER" : "TEXT");
    if (number)
        added->check(wholeNumber);
    if (many && option.isWord())
        added->expected(1, mostWords)->allow_extra_args(true);
    else if (many)
        added->take_all()->allow_extra_args(false);
    else
        added->multi_option_policy(CLI::MultiOptionPolicy::Throw);
    return added;
}

std::vector<ParsedCommand> addAdminCommands(CLI::App &app)
{
    std::vector<ParsedCommand> parsed;
    for (const AdminNoun &noun : allAdminNouns()) {
        CLI::App *group = addCommand(app, noun.name, noun.meaning);
        group->require_subcommand(1);
        for (const AdminCommand &command : *noun.commands) {
            parsed.push_back({ &command, addCommand(*group, command.verb, command.meaning), {} });
            for (const CommandOption &option : command.options)
                parsed.back().options.emplace_back(&option, addOption(*parsed.back().app, option));
        }
    }
    return parsed;
}

int runAdmin(const std::vector<ParsedCommand> &commands, const Config &config, bool json)
{
    for (const ParsedCommand &parsed : commands) {
        if (!parsed.app->parsed())
            continue;
        CommandArguments arguments;
        for (const auto &[option, given] : parsed.options) {
            if (given->count() == 0)
                continue;
            for (const std::string &value : given->results()) {
                if (!isValidUtf8(value))
                    throw CommandUsage(std::string(option->name) + " must be UTF-8 text");
            }
            arguments.set(option->name, given->results());
        }
        AdminSession session(
            config, std::string(parsed.command->noun) + ' ' + parsed.command->verb, json);
        return parsed.command->run(session, arguments);
    }
    throw CommandUsage("there is no such command");
}

int fail(const Options &options, ExitCode code, const std::string &text)
{
    if (options.json)
        std::cout << "{\"ok\":false,\"error\":" << jsonText(text) << "}\n";
    else
        std::cerr << "kvx-server: " << text << '\n';
    return code;
}

/// What was missing may be a misspelt command or option: that is named first.
std::string usageText(const CLI::App &app, const CLI::ParseError &error)
{
    const std::vector<std::string> unknown = app.remaining(true);
    const bool missing = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
    const std::string text = missing && !unknown.empty()
        ? '"' + unknown.front() + "\" is no command or option here"
        : error.what();
    return text + "; --help tells what there is";
}

} // namespace

int runCommandLine(int argc, char **argv)
{
    Options options;
    CLI::App app("The collaboration server of KVX projects.", "kvx-server");
    app.require_subcommand(1);
    app.set_version_flag("--version", "kvx-server " KVX_VERSION);
    app.add_option("--config", options.configFile, "file with lines \"key = value\"");
    app.add_flag("--json", options.json, "answers as JSON");
    for (const ConfigKey &key : configKeys()) {
        const std::string name = key.name;
        app.add_option_function<std::string>(
            "--" + name,
            [&options, name](const std::string &value) { options.settings[name] = value; },
            key.meaning);
    }
    CLI::App *serveCommand = addCommand(app, "serve", "run the server");
    serveCommand->add_flag("--check", options.serve.checkOnly, "open everything, then stop");
    serveCommand->add_option("--admin-password-file", options.serve.passwordFile,
        "where a first administrator's password is written instead of to the terminal");
    CLI::App *init = addCommand(app, "init", "make the database and the first administrator");
    init->add_option("--admin-password-file", options.serve.passwordFile,
        "where the first administrator's password is written instead of to the terminal");
    CLI::App *migrateCommand = addCommand(app, "migrate", "raise the schema of the database");
    migrateCommand->add_flag("--dry-run", options.dryRun, "only say what would be done");
    CLI::App *verifyCommand = addCommand(app, "verify", "judge the database and the store");
    verifyCommand->add_flag("--deep", options.deep, "read every content too");
    const std::vector<ParsedCommand> adminCommands = addAdminCommands(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        options.json = std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
        return fail(options, ExitUsage, usageText(app, error));
    }

    try {
        if (sodium_init() < 0)
            return fail(options, ExitUnreachable, "the random number generator cannot be used");
        const Config config = gatherConfig(options);
        if (serveCommand->parsed())
            return serve(config, options.serve);
        if (init->parsed())
            return initialise(config, options.serve, options.json);
        if (migrateCommand->parsed())
            return migrateOnly(config, options.dryRun, options.json);
        if (verifyCommand->parsed())
            return verify(config, options.deep, options.json);
        return runAdmin(adminCommands, config, options.json);
    } catch (const ConfigError &error) {
        return fail(options, ExitUsage, error.what());
    } catch (const CommandUsage &error) {
        return fail(options, ExitUsage, error.what());
    } catch (const CommandRefused &error) {
        return fail(options, ExitRefused, error.what());
    } catch (const ListenError &error) {
        return fail(options, ExitRefused, error.what());
    } catch (const std::exception &error) {
        return fail(options, ExitUnreachable, error.what());
    }
}

} // namespace kvx::server
