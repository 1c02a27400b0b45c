#include "resources/KVXGlobalLockMgrImpl.h"

#include "support/FakeHost.h"

#include <gtest/gtest.h>

using namespace kvx::test;

namespace {

class GlobalLock : public testing::Test {
protected:
    GlobalLock() = default;

    void answer(const char *reply)
    {
        for (const char *service : { "GlobalLock", "GlobalUnlock" })
            host.network.answer(QLatin1String(service), json(reply));
    }

    bool lock(const char *authorName = "", const char *authorEmail = "")
    {
        return locks.GlobalLock(7, holder, holderEmail, 30, true, QString::fromUtf8(authorName),
            QString::fromUtf8(authorEmail));
    }

    void expectHolder(const char *name, const char *email)
    {
        EXPECT_EQ(holder.toStdString(), name);
        EXPECT_EQ(holderEmail.toStdString(), email);
    }

    void expectError(int code, const char *text)
    {
        EXPECT_EQ(locks.errorCode(), code);
        EXPECT_EQ(locks.errorText().toStdString(), text);
    }

    FakeHost host;
    KVXGlobalLockMgrImpl locks;
    QString holder = QStringLiteral("before");
    QString holderEmail = QStringLiteral("before@example.com");
};

} // namespace

TEST_F(GlobalLock, sendsTypeAuthorTimeAndFlag)
{
    answer(R"({"statuscode":1,"lockedAuthorName":"N","lockedAuthorEmail":"n@example.com"})");
    EXPECT_TRUE(lock("Ben Ito", "ben@example.com"));
    expectJson(host.network.takeRequest(), R"({"service":"GlobalLock","lockType":7,
        "lockedAuthorName":"Ben Ito","lockedAuthorEmail":"ben@example.com",
        "autoUnlockTime":30,"logoutUnlock":true})");
    EXPECT_EQ(host.network.lastUrl().toStdString(), "http://127.0.0.1:8090/kvx/service");
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_EQ(host.network.lastProgress(), nullptr);
    expectHolder("N", "n@example.com");
    expectError(0, "");
}

TEST_F(GlobalLock, typeAndTimeGoOutUnchangedWhateverTheyAre)
{
    locks.GlobalLock(-1, holder, holderEmail, -2147483647 - 1, false, QString(), QString());
    const QJsonObject request = host.network.takeRequest();
    EXPECT_EQ(request.value(QLatin1String("lockType")), QJsonValue(-1));
    EXPECT_EQ(request.value(QLatin1String("autoUnlockTime")), QJsonValue(-2147483647 - 1));
    EXPECT_EQ(request.value(QLatin1String("logoutUnlock")), QJsonValue(false));
}

TEST_F(GlobalLock, anEmptyNameAndAnEmptyEmailAreTheCurrentUsersEachForItself)
{
    const auto expectAuthor = [this](const char *name, const char *email) {
        const QJsonObject request = host.network.takeRequest();
        EXPECT_EQ(
            request.value(QLatin1String("lockedAuthorName")), QJsonValue(QLatin1String(name)));
        EXPECT_EQ(
            request.value(QLatin1String("lockedAuthorEmail")), QJsonValue(QLatin1String(email)));
    };
    lock();
    expectAuthor("Anna Weiss", "anna@example.com");
    lock("Ben Ito", "");
    expectAuthor("Ben Ito", "anna@example.com");
    lock("", "ben@example.com");
    expectAuthor("Anna Weiss", "ben@example.com");
    host.removeUser();
    lock();
    expectAuthor("", "");
}

TEST_F(GlobalLock, aLockHeldBySomebodyElseIsRefusedAndNamesTheHolder)
{
    answer(R"({"statuscode":650,"lockedAuthorName":"Ben Ito","lockedAuthorEmail":"ben@example.com",
        "error":"GlobalLockHeld","message":"not read","":"This is locked by Ben Ito."})");
    EXPECT_FALSE(lock());
    expectHolder("Ben Ito", "ben@example.com");
    expectError(650, "This is locked by Ben Ito.");
}

TEST_F(GlobalLock, aLockThatTheSameUserHoldsIsTakenAgainWithoutError)
{
    answer(R"({"statuscode":650,"lockedAuthorName":"Anna Weiss",
        "lockedAuthorEmail":"anna@example.com","":"This is locked by Anna Weiss."})");
    EXPECT_TRUE(lock());
    expectError(0, "");
    expectHolder("Anna Weiss", "anna@example.com");
}

TEST_F(GlobalLock, theHolderIsComparedWithTheAuthorNotWithTheCurrentUser)
{
    answer(R"({"statuscode":650,"lockedAuthorName":"Anna Weiss",
        "lockedAuthorEmail":"anna@example.com"})");
    EXPECT_FALSE(lock("Ben Ito", "ben@example.com"));
    EXPECT_TRUE(lock("Anna Weiss", "anna@example.com"));
}

TEST_F(GlobalLock, theHolderIsComparedLetterByLetterInBothTexts)
{
    for (const char *reply : {
             R"({"statuscode":650,"lockedAuthorName":"anna weiss",
                 "lockedAuthorEmail":"anna@example.com"})",
             R"({"statuscode":650,"lockedAuthorName":"Anna Weiss",
                 "lockedAuthorEmail":"Anna@example.com"})",
             R"({"statuscode":650,"lockedAuthorName":"Anna Weiss"})",
             R"({"statuscode":650,"lockedAuthorEmail":"anna@example.com"})",
         }) {
        answer(reply);
        EXPECT_FALSE(lock()) << reply;
        expectError(650, "");
    }
}

TEST_F(GlobalLock, aRefusalWithoutAHolderEmptiesTheTexts)
{
    answer(R"({"statuscode":2})");
    EXPECT_FALSE(lock());
    expectHolder("", "");
    expectError(2, "");
}

TEST_F(GlobalLock, aSuccessWithoutAHolderEmptiesTheTexts)
{
    answer(R"({"statuscode":1.9,"lockedAuthorName":5})");
    EXPECT_TRUE(lock());
    expectHolder("", "");
}

TEST_F(GlobalLock, withoutAUserARefusalThatNamesNobodyCountsAsTaken)
{
    host.removeUser();
    answer(R"({"statuscode":2})");
    EXPECT_TRUE(lock());
    expectError(0, "");
}

TEST_F(GlobalLock, aFailedExchangeLeavesTheCallersTexts)
{
    host.network.handle(QStringLiteral("GlobalLock"), [](const QJsonObject &, QJsonObject &reply) {
        reply = json(R"({"statuscode":103,"lockedAuthorName":"X","":"busy"})");
        return false;
    });
    EXPECT_FALSE(lock());
    expectHolder("before", "before@example.com");
    expectError(103, "busy");
}

TEST_F(GlobalLock, aFailedExchangeWithTheAuthorInTheTextsCountsAsTaken)
{
    host.network.failPost(QStringLiteral("GlobalLock"));
    holder = QStringLiteral("Anna Weiss");
    holderEmail = QStringLiteral("anna@example.com");
    EXPECT_TRUE(lock());
    expectError(0, "");
    holderEmail = QStringLiteral("Anna@example.com");
    EXPECT_FALSE(lock());
    expectError(0, "");
}

TEST_F(GlobalLock, aCarriedSuccessStatusAloneDoesNotMakeUpForAFailedExchange)
{
    host.network.handle(QStringLiteral("GlobalLock"), [](const QJsonObject &, QJsonObject &reply) {
        reply = json(R"({"statuscode":1})");
        return false;
    });
    EXPECT_FALSE(lock());
    expectError(1, "");
}

TEST_F(GlobalLock, holderTextsMayBeTheAuthorTextsThemselves)
{
    answer(R"({"statuscode":650,"lockedAuthorName":"Ben Ito",
        "lockedAuthorEmail":"ben@example.com"})");
    holder.clear();
    holderEmail.clear();
    EXPECT_FALSE(locks.GlobalLock(7, holder, holderEmail, 0, false, holder, holderEmail));
    expectHolder("Ben Ito", "ben@example.com");
}

TEST_F(GlobalLock, theErrorTextStandsUnderTheEmptyKeyOnly)
{
    answer(R"({"statuscode":650.9,"error":"Word","message":"Sentence"})");
    EXPECT_FALSE(lock());
    expectError(650, "");
    answer(R"({"statuscode":650,"":7})");
    EXPECT_FALSE(lock());
    expectError(650, "");
}

TEST_F(GlobalLock, eachOperationForgetsTheLastError)
{
    answer(R"({"statuscode":650,"":"held"})");
    EXPECT_FALSE(lock());
    answer(R"({"statuscode":1})");
    EXPECT_TRUE(locks.GlobalUnlock(7));
    expectError(0, "");

    answer(R"({"statuscode":650,"":"held"})");
    EXPECT_FALSE(lock());
    host.unconfigure();
    EXPECT_FALSE(lock());
    expectError(0, "");
}

TEST_F(GlobalLock, withoutAServerNothingIsSentAndNothingChanges)
{
    host.unconfigure();
    holder = QStringLiteral("Anna Weiss");
    holderEmail = QStringLiteral("anna@example.com");
    EXPECT_FALSE(lock());
    expectHolder("Anna Weiss", "anna@example.com");
    EXPECT_FALSE(locks.GlobalUnlock(7));
    expectError(0, "");
    expectNoRequest(host);
}

TEST_F(GlobalLock, anUnlockNamesTheTypeOnly)
{
    EXPECT_TRUE(locks.GlobalUnlock(-3));
    expectJson(host.network.takeRequest(), R"({"service":"GlobalUnlock","lockType":-3})");
}

TEST_F(GlobalLock, anUnlockReturnsWhatTheServerSays)
{
    answer(R"({"statuscode":651,"":"This is not locked."})");
    EXPECT_FALSE(locks.GlobalUnlock(7));
    expectError(651, "This is not locked.");
    host.network.failPost(QStringLiteral("GlobalUnlock"));
    EXPECT_FALSE(locks.GlobalUnlock(7));
    expectError(0, "");
}

TEST_F(GlobalLock, theEndOfTheManagerReleasesNothing)
{
    {
        KVXGlobalLockMgrImpl other;
    }
    expectNoRequest(host);
}

TEST_F(GlobalLock, nothingIsLogged)
{
    lock();
    answer(R"({"statuscode":650})");
    lock();
    locks.GlobalUnlock(7);
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST_F(GlobalLock, belongsToItsParent)
{
    QObject parent;
    EXPECT_EQ((new KVXGlobalLockMgrImpl(&parent))->parent(), &parent);
}
