#pragma once

#include "cli/Output.h"

#include <functional>

namespace CLI {
class App;
}

namespace kvx::host {
class Client;
}

namespace kvx::cli {

/// What a command works with.
struct Context {
    host::Client &client;
    Output &output;
    bool interactive; ///< several commands in one session; projects stay open between them
};

/// The command that was chosen, with its arguments; gives the exit code.
using Action = std::function<int(Context &)>;

/// Each adds its subcommands; parsing one of them sets the action.
void addSessionCommands(CLI::App &app, Action &action);
void addProjectCommands(CLI::App &app, Action &action);
void addContentCommands(CLI::App &app, Action &action);
void addDataCommands(CLI::App &app, Action &action);
void addFileCommands(CLI::App &app, Action &action);
void addOcrCommands(CLI::App &app, Action &action);
void addResourceCommands(CLI::App &app, Action &action);
void addTableCommands(CLI::App &app, Action &action);
void addTemplateCommands(CLI::App &app, Action &action);
void addUserCommands(CLI::App &app, Action &action);
void addRoleCommands(CLI::App &app, Action &action);

/// All of them.
void addCommands(CLI::App &app, Action &action);

} // namespace kvx::cli
