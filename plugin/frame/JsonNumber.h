#pragma once

#include <QJsonValue>

namespace kvx {

/// The value as a whole number: truncated towards zero, clamped to the range of int. Anything
/// that is not a number gives 0.
int toInt(const QJsonValue &value);

} // namespace kvx
