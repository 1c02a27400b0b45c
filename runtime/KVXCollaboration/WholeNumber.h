#pragma once

#include <QJsonValue>
#include <limits>

/// The value as a whole number: truncated towards zero, clamped to the range of int; 0 for
/// anything that is not a number.
inline int wholeNumber(const QJsonValue &value)
{
    const double number = value.toDouble();
    if (number <= std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    if (number >= std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    return static_cast<int>(number);
}
