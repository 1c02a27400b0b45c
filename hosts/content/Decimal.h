#pragma once

#include <QString>
#include <cstdint>
#include <optional>

namespace kvx::content {

/// A decimal number as a whole count of thousandths: exact, so that totals are too.
using Thousandths = std::int64_t;

/// Reads "1234.5", "-0.125" or, where decimalComma is set, "1.234,50". At most twelve digits
/// before and three after the decimal sign (more only when they are zeros). Nothing otherwise.
std::optional<Thousandths> parseDecimal(const QString &text, bool decimalComma = false);

/// "1234.5": no superfluous zeros, at least so many digits after the point.
QString formatDecimal(Thousandths value, int minimumDecimals = 0);

/// Quantity times rate, rounded half away from zero to whole cents; the result is in cents.
/// Nothing when it does not fit.
std::optional<std::int64_t> amountInCents(Thousandths quantity, Thousandths rate);

/// Cents as "1234.50".
QString formatCents(std::int64_t cents);

} // namespace kvx::content
