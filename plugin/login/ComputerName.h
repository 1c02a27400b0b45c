#pragma once

#include <QString>

namespace kvx {

/// The computer's name as the operating system reports it, 256 characters at most.
QString computerName();

} // namespace kvx
