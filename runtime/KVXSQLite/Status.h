#pragma once

#include <string>
#include <utility>

namespace kvx::sqlite {

/// Why an operation on a project database failed; the text that goes with it names the cause.
enum class Failure {
    None,
    NotAProject, ///< missing, empty, no database, or a database without the project bookkeeping
    Damaged, ///< a project file whose contents do not hold together
    NewerFormat, ///< written by a later release
    BadSchema, ///< a table that cannot be shared, or other tables than expected
    OtherProject, ///< a file or a change log of another project
    BadLog, ///< a change log that is cut, altered or malformed
    Gap, ///< a change log that does not follow the file's version
    Clash, ///< a change log and the edits not yet published change the same thing
    Busy, ///< another connection kept the database locked for five seconds
    DiskFull,
    Io,
    Interrupted, ///< applying took longer than its limit
    Refused, ///< not possible in this state: an edit is open, nothing was prepared, …
    EditGivenUp, ///< the host's edit function failed or returned false
    Internal,
};

/// The outcome of an operation inside this library: success, or a failure with its text (UTF-8).
struct [[nodiscard]] Status {
    Status() = default;
    Status(Failure why, std::string what)
        : failure(why)
        , text(std::move(what))
    {
    }
    bool ok() const { return failure == Failure::None; }

    Failure failure = Failure::None;
    std::string text;
};

} // namespace kvx::sqlite
