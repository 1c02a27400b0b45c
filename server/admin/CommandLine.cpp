#include "admin/CommandLine.h"
#include "admin/AdminCommand.h"
#include "admin/DataFolder.h"
#include "admin/RoleCommands.h"
#include "admin/Serve.h"
#include "admin/UserCommands.h"
#include "base/Config.h"
#include "base/JsonText.h"
#include "http/HttpServer.h"
#include "store/Db.h"
#include "store/Migrations.h"

#include <CLI/CLI.hpp>
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
    std::string email;
    std::string name;
    std::string role;
    std::vector<std::string> roles;
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

void addUserCommands(CLI::App &app, Options &options)
{
    CLI::App *user = addCommand(app, "user", "accounts");
    user->require_subcommand(1);
    CLI::App *add = addCommand(
        *user, "add", "add an account; the password comes from the terminal or standard input");
    add->add_option("email", options.email)->required();
    add->add_option("--name", options.name, "name as others see it")->required();
    add->add_option("--role", options.roles, "role (may stand several times)");
    addCommand(*user, "list", "list the accounts");
    for (const auto &[name, meaning] :
        { std::pair("password", "set a new password; ends the sessions"),
            { "disable", "refuse log-ins; ends the sessions" },
            { "enable", "allow log-ins again" } })
        addCommand(*user, name, meaning)->add_option("email", options.email)->required();
}

void addRoleCommands(CLI::App &app, Options &options)
{
    CLI::App *role = addCommand(app, "role", "roles");
    role->require_subcommand(1);
    addCommand(*role, "list", "list the roles and their users");
    for (const auto &[name, meaning] : { std::pair("assign", "give a role to a user"),
             { "unassign", "take a role from a user" } }) {
        CLI::App *command = addCommand(*role, name, meaning);
        command->add_option("role", options.role)->required();
        command->add_option("email", options.email)->required();
    }
}

int runAdmin(CLI::App &app, const Config &config, const Options &options)
{
    AdminSession session(config, options.json);
    if (const CLI::App *user = app.get_subcommand("user"); user->parsed()) {
        if (user->got_subcommand("add"))
            return addUserCommand(session, options.email, options.name, options.roles);
        if (user->got_subcommand("list"))
            return listUsersCommand(session);
        if (user->got_subcommand("password"))
            return setPasswordCommand(session, options.email);
        return disableUserCommand(session, options.email, user->got_subcommand("disable"));
    }
    const CLI::App *role = app.get_subcommand("role");
    if (role->got_subcommand("list"))
        return listRolesCommand(session);
    return assignRoleCommand(session, options.role, options.email, role->got_subcommand("assign"));
}

int fail(const Options &options, ExitCode code, const std::string &text)
{
    if (options.json)
        std::cout << "{\"ok\":false,\"error\":" << jsonText(text) << "}\n";
    else
        std::cerr << "kvx-server: " << text << '\n';
    return code;
}

} // namespace

int runCommandLine(int argc, char **argv)
{
    Options options;
    CLI::App app("The collaboration server of KVX projects.", "kvx-server");
    app.require_subcommand(1);
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
    addUserCommands(app, options);
    addRoleCommands(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? ExitDone : ExitUsage;
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
        return runAdmin(app, config, options);
    } catch (const ConfigError &error) {
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
