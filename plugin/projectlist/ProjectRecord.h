#pragma once

#include <KVXCollaboration/KVXProjectInfo.h>
#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <memory>

namespace kvx {

/// The rate library that every server has as a project of its own.
inline constexpr char InnerRateLibraryGuid[] = "{5e7c38ff-98c8-46ca-b40b-9397f7bc0a8f}";
inline constexpr char InnerRateLibraryName[] = "KVXInnerRateLibrary";

/// One project from its server form. Keys that are missing or of another type read as empty text,
/// 0 or an empty object. The display name is "Description"; "BidStatus" is not read; the status
/// is Closed.
std::unique_ptr<KVXProjectInfo> readProjectRecord(const QJsonObject &object);

/// "yyyy-MM-dd hh:mm" in local time; invalid for anything else, seconds included.
QDateTime readRecordDate(const QString &text);

} // namespace kvx
