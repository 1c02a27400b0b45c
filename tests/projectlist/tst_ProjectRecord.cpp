#include "projectlist/ProjectRecord.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTimeZone>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

namespace {

QString latin(const char *text)
{
    return QLatin1String(text);
}

QJsonObject parsed(const char *text)
{
    return QJsonDocument::fromJson(text).object();
}

std::unique_ptr<KVXProjectInfo> read(const char *text)
{
    return kvx::readProjectRecord(parsed(text));
}

QDateTime slowDate(const QString &text)
{
    return QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm"));
}

QString randomText(QRandomGenerator &random)
{
    static const char *const parts[]
        = { "a", "Z", "9", " ", "%1", "%2", "\"", "\\", "/", "ä", "ß", "漢", "😀", "\n", "@" };
    QString text;
    for (int count = random.bounded(8); count > 0; --count)
        text += QString::fromUtf8(parts[random.bounded(15)]);
    return text;
}

QString randomDate(QRandomGenerator &random)
{
    const QDate date = QDate(2000, 1, 1).addDays(random.bounded(20000));
    return date.toString(QStringLiteral("yyyy-MM-dd "))
        + QTime(random.bounded(24), random.bounded(60)).toString(QStringLiteral("hh:mm"));
}

} // namespace

TEST(ProjectRecord, EveryKeyGoesToItsField)
{
    const auto record = read(R"({
        "ProjectGUID":"{4b1d}","Description":"School","Name":"Not this","Type":"Tender",
        "CreatorName":"Anna","CreatorEmail":"anna@example.com","CreateDate":"2026-11-20 09:30",
        "LastEditorName":"Ben","LastEditorEmail":"ben@example.com",
        "LastModifyDate":"2026-11-21 14:05","LogVersion":6.9,"Amount":"12.50",
        "ProjectState":"3","BidStatus":7,"AddendumProjectGUID":"{old}",
        "AdditionalInfo":"{\"client\":\"City\"}"})");
    EXPECT_EQ(record->guid(), latin("{4b1d}"));
    EXPECT_EQ(record->name(), latin("School"));
    EXPECT_EQ(record->type(), latin("Tender"));
    EXPECT_EQ(record->createUser().name(), latin("Anna"));
    EXPECT_EQ(record->createUser().email(), latin("anna@example.com"));
    EXPECT_EQ(record->createDate(), QDateTime(QDate(2026, 11, 20), QTime(9, 30)));
    EXPECT_EQ(record->lastEditor().name(), latin("Ben"));
    EXPECT_EQ(record->lastEditor().email(), latin("ben@example.com"));
    EXPECT_EQ(record->modifiedTime(), QDateTime(QDate(2026, 11, 21), QTime(14, 5)));
    EXPECT_EQ(record->logVersion(), 6);
    EXPECT_EQ(record->amount(), latin("12.50"));
    EXPECT_EQ(record->projectState(), 3);
    EXPECT_EQ(record->bidStatus(), 0) << "not read";
    EXPECT_EQ(record->addendumGuid(), latin("{old}"));
    EXPECT_EQ(record->addtionalInfo(), parsed(R"({"client":"City"})"));
    EXPECT_EQ(record->status(), KVXProjectInfo::Closed);
}

TEST(ProjectRecord, MissingKeysReadAsEmptyOrZero)
{
    const auto record = kvx::readProjectRecord({});
    EXPECT_TRUE(record->name().isEmpty());
    EXPECT_TRUE(record->guid().isEmpty());
    EXPECT_EQ(record->logVersion(), 0);
    EXPECT_FALSE(record->createDate().isValid());
    EXPECT_FALSE(record->modifiedTime().isValid());
    EXPECT_EQ(record->projectState(), 0);
    EXPECT_TRUE(record->addtionalInfo().isEmpty());
    EXPECT_TRUE(record->userPermissions().isEmpty());
}

TEST(ProjectRecord, AStateAsTextIsReadAndAsNumberIsZero)
{
    EXPECT_EQ(read(R"({"ProjectState":"3"})")->projectState(), 3);
    EXPECT_EQ(read(R"({"ProjectState":3})")->projectState(), 0);
    EXPECT_EQ(read(R"({"ProjectState":""})")->projectState(), 0);
    EXPECT_EQ(read(R"({"ProjectState":"three"})")->projectState(), 0);
    EXPECT_EQ(read(R"({"ProjectState":"0x10"})")->projectState(), 0);
}

TEST(ProjectRecord, ADateWithSecondsIsInvalidAndOneWithoutIsNot)
{
    EXPECT_FALSE(read(R"({"CreateDate":"2018-12-01 09:30:15"})")->createDate().isValid());
    EXPECT_EQ(read(R"({"CreateDate":"2018-12-01 09:30"})")->createDate(),
        QDateTime(QDate(2018, 12, 1), QTime(9, 30)));
}

TEST(ProjectRecord, APermissionObjectGivesItsFirstKeyOnly)
{
    const auto record = read(R"({"users":[{"Name":"Ben","Email":"b","Permission":[
        {"Money":1,"Report":1},{"Nothing":1},{"Report":2.9,"ProjectRW":0}]}]})");
    const KVXUser ben(latin("Ben"), latin("b"));
    EXPECT_EQ(record->permission(ben, KVXProjectInfo::Money), 1);
    EXPECT_EQ(record->permission(ben, KVXProjectInfo::Report), -1);
    EXPECT_EQ(record->permission(ben, KVXProjectInfo::ProjectRW), 0);
    EXPECT_EQ(record->permission(ben, KVXProjectInfo::Addendum), -1);
}

TEST(ProjectRecord, AUserWithoutPermissionsIsACollaborator)
{
    const auto record = read(R"({"users":[{"Name":"Ben","Email":"b"}]})");
    ASSERT_EQ(record->userPermissions().size(), 1);
    EXPECT_EQ(record->userPermissions().at(0).first.email(), latin("b"));
    EXPECT_TRUE(record->userPermissions().at(0).second.isEmpty());
}

TEST(ProjectRecord, APermissionValueIsTruncatedAndClamped)
{
    const auto record = read(R"({"users":[{"Email":"b","Permission":[
        {"ProjectRW":1.9},{"Money":1e300},{"Addendum":"1"},{"Report":-1e300}]}]})");
    const KVXUser ben(QString(), latin("b"));
    EXPECT_EQ(record->permission(ben, KVXProjectInfo::ProjectRW), 1);
    EXPECT_EQ(record->permission(ben, KVXProjectInfo::Money), INT_MAX);
    EXPECT_EQ(record->permission(ben, KVXProjectInfo::Addendum), 0);
    EXPECT_EQ(record->permission(ben, KVXProjectInfo::Report), INT_MIN);
}

TEST(ProjectRecord, ValuesOfAnyTypeDoNoHarm)
{
    const QJsonArray values { QJsonValue::Null, true, -1, 0, 1.9, 2147483648.0, 1e300, latin("1"),
        latin("%1 %2"), QJsonArray { 1, QJsonArray {}, QJsonObject {} },
        parsed(R"({"ProjectRW":{}})") };
    for (const char *key : { "ProjectGUID", "Description", "Type", "CreatorName", "CreatorEmail",
             "CreateDate", "LastEditorName", "LastEditorEmail", "LastModifyDate", "LogVersion",
             "Amount", "ProjectState", "AddendumProjectGUID", "AdditionalInfo", "users" }) {
        for (const QJsonValue &value : values)
            kvx::readProjectRecord({ { QLatin1String(key), value } })->toJson();
    }
    for (const QJsonValue &value : values) {
        const QJsonObject user { { latin("Name"), value }, { latin("Email"), value },
            { latin("Permission"), value } };
        kvx::readProjectRecord({ { latin("users"), QJsonArray { value, user } } })->toJson();
    }
}

TEST(ProjectRecord, ATextKeyOfAnotherTypeReadsAsEmpty)
{
    using Info = KVXProjectInfo;
    const std::vector<std::pair<const char *, std::function<QString(const Info &)>>> keys {
        { "Description", [](const Info &info) { return info.name(); } },
        { "Type", [](const Info &info) { return info.type(); } },
        { "ProjectGUID", [](const Info &info) { return info.guid(); } },
        { "Amount", [](const Info &info) { return info.amount(); } },
        { "AddendumProjectGUID", [](const Info &info) { return info.addendumGuid(); } },
        { "CreatorName", [](const Info &info) { return info.createUser().name(); } },
        { "CreatorEmail", [](const Info &info) { return info.createUser().email(); } },
        { "LastEditorName", [](const Info &info) { return info.lastEditor().name(); } },
        { "LastEditorEmail", [](const Info &info) { return info.lastEditor().email(); } },
    };
    const QJsonArray others { 5, 0, 1.5, true, QJsonValue::Null, QJsonArray { latin("x") },
        parsed(R"({"x":"y"})") };
    for (const auto &[key, field] : keys) {
        EXPECT_EQ(field(*kvx::readProjectRecord({ { latin(key), latin("x") } })), latin("x"));
        for (const QJsonValue &other : others)
            EXPECT_TRUE(field(*kvx::readProjectRecord({ { latin(key), other } })).isEmpty()) << key;
    }
    for (const QJsonValue &other : others) {
        for (const char *date : { "CreateDate", "LastModifyDate" }) {
            const auto record = kvx::readProjectRecord({ { latin(date), other } });
            EXPECT_FALSE(record->createDate().isValid() || record->modifiedTime().isValid());
        }
        const auto record = kvx::readProjectRecord({ { latin("ProjectState"), other },
            { latin("users"),
                QJsonArray {
                    QJsonObject { { latin("Name"), other }, { latin("Email"), other } } } },
            { latin("AdditionalInfo"), other } });
        EXPECT_EQ(record->projectState(), 0);
        EXPECT_TRUE(record->addtionalInfo().isEmpty());
        ASSERT_EQ(record->userPermissions().size(), 1);
        EXPECT_TRUE(record->userPermissions().at(0).first.name().isEmpty());
        EXPECT_TRUE(record->userPermissions().at(0).first.email().isEmpty());
    }
}

TEST(ProjectRecord, AVersionThatIsNoNumberReadsAsZero)
{
    EXPECT_EQ(read(R"({"LogVersion":6})")->logVersion(), 6);
    for (const char *value : { R"({"LogVersion":"6"})", R"({"LogVersion":true})",
             R"({"LogVersion":null})", R"({"LogVersion":[6]})", R"({"LogVersion":{"6":6}})" })
        EXPECT_EQ(read(value)->logVersion(), 0) << value;
}

TEST(ProjectRecord, AdditionalInformationThatIsNoObjectIsEmpty)
{
    for (const char *text : { "", "[]", "[1]", "5", "null", "{", "{} x", "\xff" }) {
        const QJsonObject object { { latin("AdditionalInfo"), QString::fromLatin1(text) } };
        EXPECT_TRUE(kvx::readProjectRecord(object)->addtionalInfo().isEmpty()) << text;
    }
    EXPECT_TRUE(read(R"({"AdditionalInfo":{"a":1}})")->addtionalInfo().isEmpty());
}

TEST(ProjectRecord, ReadingWhatTheModelWritesIsTheIdentity)
{
    QRandomGenerator random(1120);
    for (int round = 0; round < 2000; ++round) {
        KVXProjectInfo info(randomText(random), randomText(random), KVXProjectInfo::Closed,
            kvx::readRecordDate(randomDate(random)));
        info.setGuid(randomText(random));
        info.setCreateUser(randomText(random), randomText(random));
        info.setLastEditor(randomText(random), randomText(random));
        info.setModifiedTime(kvx::readRecordDate(randomDate(random)));
        info.setLogVersion(random.bounded(-1, 100000));
        info.setAmount(randomText(random));
        info.setProjectState(random.bounded(-5, 5));
        info.setAddendumGuid(randomText(random));
        info.setAddtionalInfo({ { randomText(random), randomText(random) },
            { latin("list"), QJsonArray { 1, 2.5, randomText(random) } } });
        for (int count = random.bounded(4); count > 0; --count) {
            const KVXUser user(randomText(random), randomText(random));
            info.addCollaborator(user);
            for (int type = random.bounded(5); type < 4; ++type)
                info.setPermission(user, static_cast<KVXProjectInfo::ProjectPermissionType>(type),
                    random.bounded(-1, 10));
        }
        const QJsonObject object = info.toJson();
        ASSERT_EQ(kvx::readProjectRecord(object)->toJson(), object);
    }
}

// The reader enters users in its own way; the record's own operations are the measure.
TEST(ProjectRecord, UsersReadAsIfEnteredOneByOne)
{
    static const char *const keys[] = { "ProjectRW", "Money", "Addendum", "Report", "Other" };
    QRandomGenerator random(7);
    for (int round = 0; round < 500; ++round) {
        KVXProjectInfo expected(QString(), QString(), KVXProjectInfo::Closed, QDateTime());
        QJsonArray users;
        for (int count = random.bounded(6); count > 0; --count) {
            const KVXUser user(randomText(random), QString::number(random.bounded(3)));
            expected.addCollaborator(user);
            QJsonArray permissions;
            for (int entry = random.bounded(5); entry > 0; --entry) {
                const int key = random.bounded(5);
                const int value = random.bounded(-1, 10);
                permissions.append(QJsonObject { { latin(keys[key]), value } });
                if (key < 4)
                    expected.setPermission(
                        user, static_cast<KVXProjectInfo::ProjectPermissionType>(key), value);
            }
            users.append(QJsonObject { { latin("Name"), user.name() },
                { latin("Email"), user.email() }, { latin("Permission"), permissions } });
        }
        const auto record = kvx::readProjectRecord({ { latin("users"), users } });
        ASSERT_EQ(record->toJson().value(latin("users")), expected.toJson().value(latin("users")));
    }
}

TEST(RecordDate, TheDirectWayAgreesWithTheParser)
{
    const QByteArray zone = qgetenv("TZ");
    qputenv("TZ", "Europe/Berlin"); // has hours that do not exist and hours that come twice
    tzset();
    QRandomGenerator random(16);
    const auto compare = [](const QString &text) {
        const QDateTime direct = kvx::readRecordDate(text);
        const QDateTime parsed = slowDate(text);
        ASSERT_EQ(direct.isValid(), parsed.isValid()) << text.toStdString();
        ASSERT_EQ(direct, parsed) << text.toStdString();
        ASSERT_EQ(direct.date(), parsed.date()) << text.toStdString();
        ASSERT_EQ(direct.time(), parsed.time()) << text.toStdString();
    };
    for (int round = 0; round < 3000; ++round)
        compare(randomDate(random));
    for (const char *day : { "2026-03-29", "2026-10-25" }) {
        for (int minute = 0; minute < 24 * 60; minute += 5)
            compare(latin(day) + QTime(0, 0).addSecs(minute * 60).toString(latin(" hh:mm")));
    }
    const QString alphabet = latin("0123456789-: xX+äd");
    for (int round = 0; round < 3000; ++round) {
        QString text = randomDate(random);
        for (int change = random.bounded(1, 4); change > 0; --change)
            text[random.bounded(text.size())] = alphabet.at(random.bounded(alphabet.size()));
        compare(text);
    }
    for (const char *text : { "", "2026-11-20", "2026-11-20 09:30 ", " 2026-11-20 09:30",
             "2026-11-20T09:30", "2026-02-30 09:30", "2026-13-01 09:30", "2026-11-20 24:00",
             "2026-11-20 23:60", "0000-01-01 00:00", "0001-01-01 00:00", "9999-12-31 23:59",
             "2024-02-29 00:00", "2026-02-29 00:00", "-026-11-20 09:30", "2026-11-20 9:30" })
        compare(latin(text));
    zone.isEmpty() ? qunsetenv("TZ") : qputenv("TZ", zone);
    tzset();
}

TEST(ProjectRecord, TheInnerRateLibraryHasItsFixedIdentity)
{
    EXPECT_STREQ(kvx::InnerRateLibraryGuid, "{5e7c38ff-98c8-46ca-b40b-9397f7bc0a8f}");
    EXPECT_STREQ(kvx::InnerRateLibraryName, "KVXInnerRateLibrary");
}
