#include "content/Bill.h"

#include <QFile>
#include <QFileInfo>

namespace kvx::content {

ImportResult importBill(const QString &path)
{
    constexpr qint64 largest = 256 * 1024 * 1024;
    const QFileInfo info(path);
    const QString name = info.fileName();
    if (!info.exists())
        return { std::nullopt, QStringLiteral("%1: there is no such file").arg(path) };
    if (!info.isFile())
        return { std::nullopt, QStringLiteral("%1: this is not a file").arg(path) };
    if (info.size() > largest)
        return { std::nullopt, QStringLiteral("%1: larger than 256 MiB").arg(path) };
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return { std::nullopt, QStringLiteral("%1: %2").arg(path, file.errorString()) };
    const QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return { std::nullopt, QStringLiteral("%1: %2").arg(path, file.errorString()) };

    const QString suffix = info.suffix().toLower();
    if (suffix == QLatin1String("csv"))
        return importCsv(content, name);
    if (suffix == QLatin1String("tsv"))
        return importTable(content, name);
    if (suffix == QLatin1String("x83") || suffix == QLatin1String("x84")
        || suffix == QLatin1String("xml"))
        return importGaeb(content, name);
    return { std::nullopt,
        QStringLiteral("%1: the name must end in .csv, .tsv, .x83, .x84 or .xml").arg(path) };
}

} // namespace kvx::content
