#include "ZipEntryName.h"

namespace kvx {

namespace {

const int LongestName = 255; // bytes, the limit of common file systems

bool isForbiddenCharacter(QChar character)
{
    return character.unicode() < 0x20 || character.unicode() == 0x7f
        || QStringLiteral("/\\:*?\"<>|").contains(character);
}

// Names that Windows gives to devices, with any extension and in any letter case.
bool isDeviceName(const QString &name)
{
    const QString stem = name.section(QLatin1Char('.'), 0, 0).trimmed().toUpper();
    for (const char *device : { "CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$", "CLOCK$" }) {
        if (stem == QLatin1String(device))
            return true;
    }
    if (stem.size() != 4
        || !(stem.startsWith(QLatin1String("COM")) || stem.startsWith(QLatin1String("LPT"))))
        return false;
    return stem.at(3).digitValue() >= 0; // superscript digits count as digits there, too
}

} // namespace

bool isSafeEntryName(const QString &name)
{
    if (name.isEmpty() || name.toUtf8().size() > LongestName || !name.isValidUtf16())
        return false;
    for (const QChar character : name) {
        if (isForbiddenCharacter(character))
            return false;
    }
    // "." and ".." end in a dot; trailing dots and blanks vanish on Windows.
    if (name.endsWith(QLatin1Char('.')) || name.endsWith(QLatin1Char(' ')))
        return false;
    return !isDeviceName(name);
}

QString entryNameKey(const QString &name)
{
    return name.normalized(QString::NormalizationForm_C).toCaseFolded();
}

} // namespace kvx
