#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/KVXUser.h>

#include <QJsonArray>
#include <QRandomGenerator>
#include <gtest/gtest.h>
#include <limits>
#include <memory>

namespace {

const char *const permissionKeys[] = { "AllProjectReadWrite", "AllProjectReview", "ExportProject",
    "ExportUnitRate", "UploadReportSetting", "ReadOnlyRateLibrary", "ReadWriteRateLibrary",
    "ReadWriteBQLibrary", "Administrator" };

QString randomText(QRandomGenerator &random)
{
    static const QString alphabet = QString::fromUtf8("aZ09 %1\"\\/<>äß漢😀\n@.+");
    QString text;
    for (int length = random.bounded(12); length > 0; --length)
        text.append(alphabet.at(random.bounded(alphabet.size())));
    // A half of a pair would not survive any UTF-8 transport.
    return QString::fromUcs4(text.toUcs4().constData(), text.toUcs4().size());
}

std::unique_ptr<KVXRole> read(const QJsonObject &object)
{
    return std::unique_ptr<KVXRole>(KVXRole::fromJson(object));
}

} // namespace

TEST(Role, ANewRoleHasAllNinePermissionsAtZero)
{
    EXPECT_EQ(KVXRole().permissions().size(), 9);
    const KVXRole role(QStringLiteral("Estimators"));
    EXPECT_EQ(role.name(), QStringLiteral("Estimators"));
    EXPECT_EQ(role.id(), 0);
    ASSERT_EQ(role.permissions().size(), 9);
    for (auto at = role.permissions().begin(); at != role.permissions().end(); ++at)
        EXPECT_EQ(at.value(), 0);
    EXPECT_FALSE(role.isAdministrator());
}

TEST(Role, APermissionIsZeroOrOne)
{
    KVXRole role;
    role.setPermission(KVXRole::Administrator, 17);
    EXPECT_EQ(role.permissions().value(KVXRole::Administrator), 1);
    EXPECT_TRUE(role.isAdministrator());
    role.setPermission(KVXRole::Administrator, 0);
    EXPECT_FALSE(role.isAdministrator());
    role.setPermission(static_cast<KVXRole::RolePermissionType>(12), 1);
    EXPECT_EQ(role.permissions().size(), 9);
}

TEST(Role, EachPermissionTravelsUnderItsOwnKey)
{
    for (int type = 0; type < 9; ++type) {
        const auto role = read({ { QLatin1String(permissionKeys[type]), 1 } });
        for (int other = 0; other < 9; ++other) {
            EXPECT_EQ(role->has(static_cast<KVXRole::RolePermissionType>(other)), other == type)
                << permissionKeys[type];
        }
    }
}

TEST(Role, AJsonThatIsReadAndWrittenIsTheSame)
{
    QRandomGenerator random(20261120);
    for (int round = 0; round < 1000; ++round) {
        QJsonObject object { { QStringLiteral("RoleID"), random.bounded(1, 100000) },
            { QStringLiteral("Name"), randomText(random) },
            { QStringLiteral("Revision"), random.bounded(1000) } };
        for (const char *key : permissionKeys)
            object.insert(QLatin1String(key), random.bounded(2));
        QJsonArray users;
        const auto role = read(object);
        for (int count = random.bounded(4); count > 0; --count) {
            const QJsonObject user { { QStringLiteral("Name"), randomText(random) },
                { QStringLiteral("Email"), randomText(random) },
                { QStringLiteral("UserProductVersion"), random.bounded(4) } };
            users.append(user);
            role->add(KVXUser::fromJson(role.get(), user));
        }
        object.insert(QStringLiteral("users"), users);
        ASSERT_EQ(role->toJson(), object);
    }
}

TEST(Role, ARoleMadeHereSendsNoRevision)
{
    const KVXRole role(QStringLiteral("New"));
    EXPECT_FALSE(role.toJson().contains(QLatin1String("Revision")));
    EXPECT_EQ(role.toJson().value(QLatin1String("RoleID")), 0);
    EXPECT_TRUE(role.toJson().value(QLatin1String("users")).isArray());
}

TEST(Role, ValuesOfAnotherTypeReadAsNone)
{
    const auto role = read({ { QStringLiteral("RoleID"), QStringLiteral("7") },
        { QStringLiteral("Name"), 5 }, { QStringLiteral("Administrator"), QStringLiteral("1") },
        { QStringLiteral("ExportProject"), QJsonArray { 1 } },
        { QStringLiteral("Revision"), QJsonValue::Null } });
    EXPECT_EQ(role->id(), 0);
    EXPECT_TRUE(role->name().isEmpty());
    EXPECT_FALSE(role->isAdministrator());
    EXPECT_FALSE(role->has(KVXRole::ExportProject));
    EXPECT_FALSE(role->toJson().contains(QLatin1String("Revision")));
    EXPECT_EQ(read({ { QStringLiteral("RoleID"), 1e300 } })->id(), std::numeric_limits<int>::max());
    EXPECT_EQ(
        read({ { QStringLiteral("RoleID"), -1e300 } })->id(), std::numeric_limits<int>::min());
}

TEST(Role, OwnsItsUsersAndTellsThemApartByTheExactEmail)
{
    KVXRole role;
    auto *anna = new KVXUser(QStringLiteral("Anna"), QStringLiteral("anna@example.com"));
    role.add(anna);
    role.add(anna);
    role.add(nullptr);
    EXPECT_EQ(role.users().size(), 1);
    const KVXUser same(QStringLiteral("Other name"), QStringLiteral("anna@example.com"));
    const KVXUser differentCase(QStringLiteral("Anna"), QStringLiteral("Anna@example.com"));
    EXPECT_TRUE(role.has(&same));
    EXPECT_FALSE(role.has(&differentCase));
    EXPECT_FALSE(role.has(static_cast<const KVXUser *>(nullptr)));
}

TEST(Role, ACloneHasIdentityNameAndPermissionsButNoUsers)
{
    const auto role = read({ { QStringLiteral("RoleID"), 4 },
        { QStringLiteral("Name"), QStringLiteral("R") }, { QStringLiteral("Administrator"), 1 } });
    role->add(new KVXUser(QStringLiteral("Anna"), QStringLiteral("anna@example.com")));
    const std::unique_ptr<KVXRole> copy(role->clone());
    EXPECT_EQ(copy->id(), 4);
    EXPECT_EQ(copy->name(), QStringLiteral("R"));
    EXPECT_EQ(copy->permissions(), role->permissions());
    EXPECT_TRUE(copy->users().isEmpty());
}

TEST(User, JsonHoldsNameEmailAndVersionButNeverThePassword)
{
    KVXUser user(QStringLiteral("Anna"), QStringLiteral("anna@example.com"));
    user.setPassword(QStringLiteral("secret"));
    user.setVersion(KVXUser::Standard);
    EXPECT_EQ(user.toJson(),
        (QJsonObject { { QStringLiteral("Name"), QStringLiteral("Anna") },
            { QStringLiteral("Email"), QStringLiteral("anna@example.com") },
            { QStringLiteral("UserProductVersion"), 2 } }));
}

TEST(User, AVersionThatIsNotKnownHereReadsAsUnknown)
{
    for (const QJsonValue &version : { QJsonValue(-1), QJsonValue(4), QJsonValue(1e300),
             QJsonValue(QStringLiteral("2")), QJsonValue() }) {
        const std::unique_ptr<KVXUser> user(
            KVXUser::fromJson(nullptr, { { QStringLiteral("UserProductVersion"), version } }));
        EXPECT_EQ(user->version(), KVXUser::UnknownVersion);
    }
}

TEST(User, OwnsTheRoleItIsGivenAndBorrowsTheOneItIsReadWith)
{
    KVXRole borrowed(QStringLiteral("Borrowed"));
    const std::unique_ptr<KVXUser> user(KVXUser::fromJson(&borrowed, {}));
    EXPECT_EQ(user->role(), &borrowed);

    auto *owned = new KVXRole(QStringLiteral("Owned"));
    user->setRole(owned);
    EXPECT_EQ(user->role(), owned);
    user->setRole(owned); // the same again must not free it
    EXPECT_EQ(user->role()->name(), QStringLiteral("Owned"));
    user->setRole(new KVXRole(QStringLiteral("Second")));
    EXPECT_EQ(user->role()->name(), QStringLiteral("Second"));
    user->setRole(nullptr);
    EXPECT_EQ(user->role(), nullptr);
    EXPECT_EQ(borrowed.name(), QStringLiteral("Borrowed"));
}

TEST(User, ACopyCarriesNoRole)
{
    KVXUser user(QStringLiteral("Anna"), QStringLiteral("anna@example.com"));
    user.setVersion(KVXUser::Professional);
    user.setRole(new KVXRole(QStringLiteral("R")));
    const KVXUser copy(user);
    EXPECT_EQ(copy.role(), nullptr);
    EXPECT_EQ(copy.email(), user.email());
    EXPECT_EQ(copy.version(), KVXUser::Professional);

    KVXUser target;
    target.setRole(new KVXRole(QStringLiteral("Old")));
    target = user;
    EXPECT_EQ(target.role(), nullptr);
    EXPECT_EQ(target.name(), user.name());
    const KVXUser &self = user;
    user = self;
    EXPECT_NE(user.role(), nullptr) << "an assignment to itself changes nothing";
}
