#pragma once

#include "cli/Commands.h"

#include <QObject>
#include <string>
#include <thread>

namespace kvx::cli {

/// Several commands in one session, one a line of standard input. Between them the host's loop
/// runs, so that notifications are applied as they come. Ends with the input or with "exit".
/// The reading thread ends with the input; it is left behind when "exit" comes first.
class Shell : public QObject {
    Q_OBJECT
public:
    Shell(host::Client &client, Output &output);

    /// Runs until the end; the exit code of the last command.
    int run();

private:
    void execute(const std::string &line);

    Context m_context;
    int m_exit = Done;
};

/// Runs one command line; reports what cannot be parsed.
int runCommand(const std::string &line, Context &context);

} // namespace kvx::cli
