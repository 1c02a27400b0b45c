#include "cli/JsonFile.h"

#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

namespace kvx::cli {

bool readJsonFile(const QString &path, QJsonObject &object, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parsed;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parsed);
    if (parsed.error != QJsonParseError::NoError)
        error = QStringLiteral("%1: %2 (at byte %3)")
                    .arg(path, parsed.errorString(), QString::number(parsed.offset));
    else if (!document.isObject())
        error = QStringLiteral("%1: the file holds no JSON object").arg(path);
    object = document.object();
    return error.isEmpty();
}

bool writeJsonFile(const QString &path, const QJsonObject &object, QString &error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(QJsonDocument(object).toJson()) >= 0
        && file.commit())
        return true;
    error = QStringLiteral("%1: %2").arg(path, file.errorString());
    return false;
}

} // namespace kvx::cli
