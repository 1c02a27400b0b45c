#include "frame/JsonNumber.h"

#include <limits>

namespace kvx {

int toInt(const QJsonValue &value)
{
    constexpr double lowest = std::numeric_limits<int>::min();
    constexpr double highest = std::numeric_limits<int>::max();
    const double number = value.toDouble();
    if (number <= lowest)
        return std::numeric_limits<int>::min();
    if (number >= highest)
        return std::numeric_limits<int>::max();
    return static_cast<int>(number);
}

} // namespace kvx
