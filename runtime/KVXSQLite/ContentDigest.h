#pragma once

#include "KVXSQLite/Schema.h"

namespace kvx::sqlite {

/// SHA-256 over the content: per table its name and columns, then its rows in key order with
/// typed values. Two projects have the same digest exactly when they hold the same content.
Status contentDigest(Connection &connection, const Schema &schema, Digest *digest);

} // namespace kvx::sqlite
