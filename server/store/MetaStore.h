#pragma once

#include <optional>
#include <string>

namespace kvx::server {

class Db;

/// Named values of the whole server: "epoch", "epoch_since", "read_only", "created", "roles",
/// "roles.latest", "clock".
std::optional<std::string> metaValue(Db &db, const std::string &name);
void setMetaValue(Db &db, const std::string &name, const std::string &value);

} // namespace kvx::server
