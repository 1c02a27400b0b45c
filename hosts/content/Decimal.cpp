#include "content/Decimal.h"

namespace kvx::content {

std::optional<Thousandths> parseDecimal(const QString &text, bool decimalComma)
{
    QString digits = text.trimmed();
    const bool negative = digits.startsWith(QLatin1Char('-'));
    if (negative || digits.startsWith(QLatin1Char('+')))
        digits.remove(0, 1);
    if (decimalComma && digits.contains(QLatin1Char(','))) {
        digits.remove(QLatin1Char('.'));
        digits.replace(QLatin1Char(','), QLatin1Char('.'));
    }
    const int point = digits.indexOf(QLatin1Char('.'));
    const QString whole = point < 0 ? digits : digits.left(point);
    const QString fraction = point < 0 ? QString() : digits.mid(point + 1);
    if (whole.isEmpty() || whole.size() > 12 || (point >= 0 && fraction.isEmpty())
        || fraction.size() > 12)
        return std::nullopt;

    Thousandths value = 0;
    for (const QChar c : whole) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return std::nullopt;
        value = value * 10 + (c.unicode() - u'0');
    }
    for (int i = 0; i < 3 || i < fraction.size(); ++i) {
        const QChar c = i < fraction.size() ? fraction.at(i) : QChar(u'0');
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return std::nullopt;
        if (i < 3)
            value = value * 10 + (c.unicode() - u'0');
        else if (c != QLatin1Char('0'))
            return std::nullopt;
    }
    return negative ? -value : value;
}

QString formatDecimal(Thousandths value, int minimumDecimals)
{
    const quint64 magnitude
        = value < 0 ? 0 - static_cast<quint64>(value) : static_cast<quint64>(value);
    QString fraction = QString::number(magnitude % 1000).rightJustified(3, QLatin1Char('0'));
    while (fraction.size() > minimumDecimals && fraction.endsWith(QLatin1Char('0')))
        fraction.chop(1);
    QString text = QString::number(magnitude / 1000);
    if (!fraction.isEmpty())
        text += QLatin1Char('.') + fraction;
    return value < 0 ? QLatin1Char('-') + text : text;
}

std::optional<std::int64_t> amountInCents(Thousandths quantity, Thousandths rate)
{
    std::int64_t product = 0; // millionths
    if (__builtin_mul_overflow(quantity, rate, &product))
        return std::nullopt;
    constexpr std::int64_t perCent = 10000;
    const std::int64_t half = product < 0 ? -perCent / 2 : perCent / 2;
    if (__builtin_add_overflow(product, half, &product))
        return std::nullopt;
    return product / perCent;
}

QString formatCents(std::int64_t cents)
{
    return formatDecimal(cents * 10, 2);
}

} // namespace kvx::content
