#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kvx::server {

struct Config;

/// The server's log: one line an event, as text or as JSON. Never passwords, cookies or contents.
/// Any thread.
enum class LogLevel { Debug, Info, Warning, Error };

/// Opens the log as configured; without it lines go to standard error as text. Throws ConfigError
/// when the file cannot be written.
void openLog(const Config &config);

using LogFields = std::vector<std::pair<const char *, std::string>>;

/// `event` is a fixed word or sentence, the fields are what varies.
void logLine(LogLevel level, const std::string &event, const LogFields &fields = {});

} // namespace kvx::server
