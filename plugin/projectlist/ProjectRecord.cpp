#include "projectlist/ProjectRecord.h"

#include "frame/JsonNumber.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <utility>

namespace kvx {

namespace {

QString recordText(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

/// -1: the characters are not all digits.
int recordDigits(const QString &text, int position, int count)
{
    int number = 0;
    for (int index = position; index < position + count; ++index) {
        const ushort digit = text.at(index).unicode();
        if (digit < '0' || digit > '9')
            return -1;
        number = number * 10 + (digit - '0');
    }
    return number;
}

/// Adds what one permission object gives: the first of the four keys that it holds.
void readPermission(const QJsonObject &object, KVXProjectInfo::Permissions &permissions)
{
    static constexpr std::pair<const char *, KVXProjectInfo::ProjectPermissionType> keys[] {
        { "ProjectRW", KVXProjectInfo::ProjectRW },
        { "Money", KVXProjectInfo::Money },
        { "Addendum", KVXProjectInfo::Addendum },
        { "Report", KVXProjectInfo::Report },
    };
    for (const auto &[key, type] : keys) {
        const auto value = object.find(QLatin1String(key));
        if (value != object.end()) {
            permissions.insert(type, toInt(*value));
            return;
        }
    }
}

/// The record tells its users apart by their e-mail, as its own operations do; entered one by one
/// a record with thousands of users would take longer to read than to transfer.
KVXProjectInfo::UserPermissions readUsers(const QJsonArray &users)
{
    KVXProjectInfo::UserPermissions entries;
    QHash<QString, int> positions;
    for (const QJsonValue &value : users) {
        const QJsonObject object = value.toObject();
        const QString email = recordText(object, "Email");
        const auto known = positions.constFind(email);
        const int position = known == positions.constEnd() ? entries.size() : *known;
        if (position == entries.size()) {
            positions.insert(email, position);
            entries.append({ KVXUser(recordText(object, "Name"), email), {} });
        }
        const QJsonArray permissions = object.value(QLatin1String("Permission")).toArray();
        for (const QJsonValue &permission : permissions)
            readPermission(permission.toObject(), entries[position].second);
    }
    return entries;
}

} // namespace

// Two parsed dates a record cost more than all the rest of a long list, hence the direct way.
QDateTime readRecordDate(const QString &text)
{
    if (text.size() == 16 && text.at(4) == QLatin1Char('-') && text.at(7) == QLatin1Char('-')
        && text.at(10) == QLatin1Char(' ') && text.at(13) == QLatin1Char(':')) {
        const QDate date(
            recordDigits(text, 0, 4), recordDigits(text, 5, 2), recordDigits(text, 8, 2));
        const QTime time(recordDigits(text, 11, 2), recordDigits(text, 14, 2));
        const QDateTime moment(date, time);
        if (date.year() > 0 && time.isValid() && moment.isValid())
            return moment;
    }
    return QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm"));
}

std::unique_ptr<KVXProjectInfo> readProjectRecord(const QJsonObject &object)
{
    auto record = std::make_unique<KVXProjectInfo>(recordText(object, "Description"),
        recordText(object, "Type"), KVXProjectInfo::Closed,
        readRecordDate(recordText(object, "CreateDate")));
    record->setCreateUser(recordText(object, "CreatorName"), recordText(object, "CreatorEmail"));
    record->setModifiedTime(readRecordDate(recordText(object, "LastModifyDate")));
    record->setLogVersion(toInt(object.value(QLatin1String("LogVersion"))));
    record->setLastEditor(
        recordText(object, "LastEditorName"), recordText(object, "LastEditorEmail"));
    record->setGuid(recordText(object, "ProjectGUID"));
    record->setAmount(recordText(object, "Amount"));
    record->setUserPermissions(readUsers(object.value(QLatin1String("users")).toArray()));
    const QByteArray additionalInfo = recordText(object, "AdditionalInfo").toUtf8();
    record->setAddtionalInfo(QJsonDocument::fromJson(additionalInfo).object());
    record->setAddendumGuid(recordText(object, "AddendumProjectGUID"));
    // Kept as is: the state comes as text; a number reads as 0.
    record->setProjectState(recordText(object, "ProjectState").toInt());
    return record;
}

} // namespace kvx
