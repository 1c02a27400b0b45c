#pragma once

#include "client/Client.h"

#include <CLI/CLI.hpp>
#include <string>

namespace kvx::cli {

/// Options of every command. Each can also come from the environment: KVX_SERVER, KVX_USER,
/// KVX_PASSWORD_FILE, KVX_PLUGIN, KVX_HOME, KVX_PROXY.
struct Options {
    std::string server = "127.0.0.1:8090";
    std::string user;
    std::string passwordFile;
    std::string plugin;
    std::string home;
    std::string proxy; ///< http://[user:password@]host:port or socks5://…
    std::string log;
    bool json = false;
};

void addOptions(CLI::App &app, Options &options);

/// False with the reason when an option has no sense. The password comes from the file, else from
/// the terminal without echo, else from the first line of standard input.
bool clientOptions(const Options &options, host::ClientOptions &client, QString &error);

} // namespace kvx::cli
