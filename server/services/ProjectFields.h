#pragma once

#include "services/Request.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::server {

/// The name and the GUID of the rate library that every installation shares: each only with the
/// other.
constexpr const char *innerLibraryName = "KVXInnerRateLibrary";
constexpr const char *innerLibraryGuid = "{5e7c38ff-98c8-46ca-b40b-9397f7bc0a8f}";
bool isInnerLibraryName(const std::string &name);
bool isInnerLibraryGuid(const std::string &guid);

/// A name of 1..`maximum` characters; throws BadRequest naming the key.
std::string nameOf(const JsonObject &request, const char *key, std::size_t maximum);

/// A whole number of 32 bits, sent as number or as decimal text.
std::optional<std::int64_t> numberOf(const JsonObject &request, const char *key);

/// An amount of at most 64 bytes, kept as sent; a number is kept as its decimal text.
std::optional<std::string> amountOf(const JsonObject &request);

} // namespace kvx::server
