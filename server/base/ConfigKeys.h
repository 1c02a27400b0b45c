#pragma once

#include "base/Config.h"

#include <functional>

namespace kvx::server {

/// How one setting is read from text. Throws std::invalid_argument with what would fit.
struct ConfigEntry {
    ConfigKey key;
    std::function<void(Config &, const std::string &)> read;
};

const std::vector<ConfigEntry> &configEntries();

} // namespace kvx::server
