#pragma once

namespace kvx::server {

/// What a command's exit code says.
enum ExitCode { ExitDone = 0, ExitRefused = 1, ExitUsage = 2, ExitUnreachable = 3 };

/// The whole program: settings from file, environment and options, then the command.
int runCommandLine(int argc, char **argv);

} // namespace kvx::server
