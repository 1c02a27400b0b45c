#pragma once

#include <string>

namespace kvx::server {

struct Config;

struct ServeOptions {
    bool checkOnly = false;
    std::string passwordFile; ///< for the password of a first administrator; empty: the terminal
};

/// Runs the server until it is told to stop; the exit code. Throws what cannot be started.
int serve(const Config &config, const ServeOptions &options);

/// Makes or raises the database without serving.
int initialise(const Config &config, const ServeOptions &options, bool json);
int migrateOnly(const Config &config, bool dryRun, bool json);

} // namespace kvx::server
