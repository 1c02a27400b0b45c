#pragma once

#include "services/ServiceTable.h"

#include <string>

namespace kvx::server {

/// "gettable", "updatetable".
extern const ServiceTable tableServices;

/// A letter, then up to 63 letters, digits and "_"; none of the names that a reply uses itself.
bool isTableName(const std::string &name);

/// A table's data as it is kept: compact, without the member that only the server gives.
std::string tableData(const Json &data);

/// Whether a role may write a table of that right (a permission's key, or empty for the usual one).
bool mayWriteTable(const RoleRights &rights, const std::string &writeRight);

} // namespace kvx::server
