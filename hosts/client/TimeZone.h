#pragma once

namespace kvx::host {

/// Sets TZ to the machine's own zone where it is not set. Without it the C library looks whether
/// /etc/localtime is another file at every single date, which for a long project list is half of
/// the work. Before other threads run.
void nameTimeZone();

} // namespace kvx::host
