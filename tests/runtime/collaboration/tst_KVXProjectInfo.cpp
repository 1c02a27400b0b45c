#include <KVXCollaboration/KVXProjectInfo.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <gtest/gtest.h>

namespace {

const KVXUser anna(QStringLiteral("Anna Weiss"), QStringLiteral("anna@example.com"));
const KVXUser ben(QStringLiteral("Ben Ito"), QStringLiteral("ben@example.com"));

QDateTime date(const char *text)
{
    return QDateTime::fromString(QLatin1String(text), QStringLiteral("yyyy-MM-dd hh:mm"));
}

KVXProjectInfo record()
{
    return KVXProjectInfo(QStringLiteral("School"), QStringLiteral("Tender"),
        KVXProjectInfo::Closed, date("2026-11-20 09:30"));
}

} // namespace

TEST(ProjectInfo, ANewRecordHasTheGivenFieldsAndNoVersion)
{
    const KVXProjectInfo info = record();
    EXPECT_EQ(info.name(), QStringLiteral("School"));
    EXPECT_EQ(info.type(), QStringLiteral("Tender"));
    EXPECT_EQ(info.status(), KVXProjectInfo::Closed);
    EXPECT_EQ(info.createDate(), date("2026-11-20 09:30"));
    EXPECT_EQ(info.logVersion(), -1);
    EXPECT_TRUE(info.userPermissions().isEmpty());
}

TEST(ProjectInfo, APermissionThatNobodyGaveIsMinusOne)
{
    KVXProjectInfo info = record();
    EXPECT_EQ(info.permission(anna, KVXProjectInfo::ProjectRW), -1);
    info.addCollaborator(anna);
    EXPECT_EQ(info.permission(anna, KVXProjectInfo::ProjectRW), -1);
    info.setPermission(anna, KVXProjectInfo::ProjectRW, 0);
    EXPECT_EQ(info.permission(anna, KVXProjectInfo::ProjectRW), 0);
    EXPECT_EQ(info.permission(anna, KVXProjectInfo::Money), -1);
    EXPECT_EQ(info.permission(ben, KVXProjectInfo::ProjectRW), -1);
}

TEST(ProjectInfo, UsersAreToldApartByTheirExactEmail)
{
    KVXProjectInfo info = record();
    info.addCollaborator(anna);
    info.addCollaborator(KVXUser(QStringLiteral("Another name"), anna.email()));
    EXPECT_EQ(info.userPermissions().size(), 1);
    info.addCollaborator(KVXUser(anna.name(), QStringLiteral("Anna@example.com")));
    EXPECT_EQ(info.userPermissions().size(), 2);
    info.setPermission(ben, KVXProjectInfo::Report, 3);
    EXPECT_EQ(info.userPermissions().size(), 3) << "setting enters the user";
}

TEST(ProjectInfo, WritesTheRecordFormOfTheServer)
{
    KVXProjectInfo info = record();
    info.setGuid(QStringLiteral("{4b1d}"));
    info.setCreateUser(anna.name(), anna.email());
    info.setLastEditor(ben.name(), ben.email());
    info.setModifiedTime(date("2026-11-21 14:05"));
    info.setLogVersion(6);
    info.setAmount(QStringLiteral("1234567.89"));
    info.setProjectState(0);
    info.setBidStatus(2);
    info.setAddtionalInfo({ { QStringLiteral("client"), QStringLiteral("City") } });
    info.setPermission(ben, KVXProjectInfo::Report, 1);
    info.setPermission(ben, KVXProjectInfo::ProjectRW, 1);
    info.setPermission(ben, KVXProjectInfo::Money, -1);
    info.addCollaborator(anna);

    const char *expected = R"({
        "ProjectGUID":"{4b1d}","Description":"School","Type":"Tender",
        "CreatorName":"Anna Weiss","CreatorEmail":"anna@example.com","CreateDate":"2026-11-20 09:30",
        "LastEditorName":"Ben Ito","LastEditorEmail":"ben@example.com",
        "LastModifyDate":"2026-11-21 14:05",
        "LogVersion":6,"Amount":"1234567.89","ProjectState":"0","BidStatus":2,
        "AddendumProjectGUID":"","AdditionalInfo":"{\"client\":\"City\"}",
        "users":[{"Name":"Ben Ito","Email":"ben@example.com",
                  "Permission":[{"ProjectRW":1},{"Money":-1},{"Report":1}]},
                 {"Name":"Anna Weiss","Email":"anna@example.com","Permission":[]}]})";
    EXPECT_EQ(info.toJson(), QJsonDocument::fromJson(expected).object());
}

TEST(ProjectInfo, WritesEmptyTextsForWhatIsNotSet)
{
    const KVXProjectInfo info(QString(), QString(), KVXProjectInfo::Closed, QDateTime());
    const QJsonObject object = info.toJson();
    EXPECT_EQ(object.value(QLatin1String("CreateDate")), QJsonValue(QString()));
    EXPECT_EQ(object.value(QLatin1String("LastModifyDate")), QJsonValue(QString()));
    EXPECT_EQ(object.value(QLatin1String("AdditionalInfo")), QJsonValue(QStringLiteral("{}")));
    EXPECT_EQ(object.value(QLatin1String("users")), QJsonValue(QJsonArray()));
    EXPECT_EQ(object.size(), 16);
}
