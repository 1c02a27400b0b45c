#pragma once

#include "services/Request.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kvx::server {

/// What a file name of the file services stands for.
struct FileName {
    enum class Kind {
        ChangeLog, ///< {GUID}_log + version
        BadChangeLog, ///< {GUID}_log + digits that are no version: leading zero, none, more than
                      ///< nine
        ProjectFile, ///< {GUID}.KVX
        Attachment, ///< {GUID}_ + another name
        Own ///< a name in the caller's own area
    } kind
        = Kind::Own;
    std::string guid; ///< as sent; empty for an own file
    std::int64_t version = 0; ///< of a change log
    std::string name; ///< of an attachment or an own file, in normal form C
};

/// Nothing for a name that is none of these. No part of the text is ever used as a path.
std::optional<FileName> parseFileName(std::string_view text);

/// The request's "FileName", which must agree with "ProjectGUID" where that is sent. Throws
/// BadRequest.
FileName requestedFile(const JsonObject &request);

/// "{GUID}_log" + version.
std::string logName(const std::string &guid, std::int64_t version);

} // namespace kvx::server
