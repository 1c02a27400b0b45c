#pragma once

#include <QJsonObject>
#include <QString>

namespace kvx::cli {

/// The one JSON object of a local file. False with a reason that names the file.
bool readJsonFile(const QString &path, QJsonObject &object, QString &error);

/// Whole or not at all.
bool writeJsonFile(const QString &path, const QJsonObject &object, QString &error);

} // namespace kvx::cli
