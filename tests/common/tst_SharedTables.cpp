#include "common/KVXCWCommonImpl.h"

#include "frame/KVXServerInfo.h"
#include "support/FakeHost.h"

#include <KVXCommon/IKVXSimpleTable.h>
#include <QJsonArray>
#include <memory>
#include <gtest/gtest.h>

using namespace kvx::test;

namespace {

/// A host's own table, which counts itself and can be renamed.
class CountedTable : public IKVXSimpleTable {
public:
    explicit CountedTable(const QString &name, int &alive)
        : tableName(name)
        , m_alive(alive)
    {
        ++m_alive;
    }
    ~CountedTable() override { --m_alive; }

    QString name() const override { return tableName; }
    QJsonObject toJson() const override
    {
        return { { QStringLiteral("tablename"), tableName },
            { QStringLiteral("tabledata"),
                QJsonObject { { QStringLiteral("by"), QStringLiteral("host") } } } };
    }

    QString tableName;

private:
    int &m_alive;
};

class SharedTables : public testing::Test {
protected:
    SharedTables()
    {
        QObject::connect(common.get(), &KVXCWCommon::commitFinish, common.get(),
            [this](const QString &name) { committed.append(name); });
    }

    void answerTable(const char *reply)
    {
        host.network.answer(QStringLiteral("gettable"), json(reply));
    }

    static std::string cell(const IKVXSimpleTable *table)
    {
        const QJsonObject data = table->toJson().value(QLatin1String("tabledata")).toObject();
        return data.value(QLatin1String("rows")).toArray()[0].toArray()[0].toString().toStdString();
    }

    int requests() const { return host.network.postCount(); }

    FakeHost host;
    int alive = 0;
    std::unique_ptr<KVXCWCommonImpl> common = std::make_unique<KVXCWCommonImpl>();
    QStringList committed;
    const QString rates = QStringLiteral("rates");
};

constexpr const char *oneCell
    = R"({"statuscode":1,"rates":{"columns":["key"],"rows":[["1.50"]],"revision":4}})";

} // namespace

TEST_F(SharedTables, aFetchNamesTheTableAndReadsTheMemberOfThatName)
{
    answerTable(oneCell);
    const IKVXSimpleTable *table = common->getTable(rates);
    ASSERT_NE(table, nullptr);
    expectJson(host.network.takeRequest(),
        R"({"service":"gettable","Email":"anna@example.com","tablename":"rates"})");
    EXPECT_EQ(host.network.lastUrl().toStdString(), "http://127.0.0.1:8090/kvx/service");
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_EQ(host.network.lastProgress(), nullptr);
    EXPECT_EQ(table->name(), rates);
    expectJson(table->toJson(), R"({"tablename":"rates",
        "tabledata":{"columns":["key"],"rows":[["1.50"]],"revision":4}})");
    EXPECT_TRUE(committed.isEmpty());
}

TEST_F(SharedTables, aTableThatTheReplyLacksIsEmpty)
{
    for (const char *reply : { R"({"statuscode":1})", "{}", R"({"rates":[1]})",
             R"({"rates":"text"})", R"({"rates":{}})", R"({"Rates":{"columns":["x"]}})" }) {
        answerTable(reply);
        const IKVXSimpleTable *table = common->getTable(rates);
        ASSERT_NE(table, nullptr) << reply;
        expectJson(
            table->toJson(), R"({"tablename":"rates","tabledata":{"columns":[],"rows":[]}})");
    }
}

TEST_F(SharedTables, aNameOfAnyLettersIsFoundInTheReply)
{
    const QString name = QStringLiteral("Löhne %1");
    answerTable(R"({"statuscode":1,"Löhne %1":{"columns":["ä"]}})");
    expectJson(common->getTable(name)->toJson(),
        R"({"tablename":"Löhne %1","tabledata":{"columns":["ä"],"rows":[]}})");
}

TEST_F(SharedTables, aTableNamedLikeTheStatusIsEmpty)
{
    answerTable(R"({"statuscode":1})");
    expectJson(common->getTable(QStringLiteral("statuscode"))->toJson(),
        R"({"tablename":"statuscode","tabledata":{"columns":[],"rows":[]}})");
}

TEST_F(SharedTables, aFetchIsJudgedByTheExchangeNotByTheStatus)
{
    answerTable(R"({"statuscode":300,"rates":{"rows":[["x"]]}})");
    EXPECT_NE(common->getTable(rates), nullptr);

    host.network.handle(QStringLiteral("gettable"), [](const QJsonObject &, QJsonObject &reply) {
        reply = json(oneCell);
        return false;
    });
    EXPECT_EQ(common->getTable(rates), nullptr);
}

TEST_F(SharedTables, aFailedFetchKeepsTheTableThatWasThere)
{
    answerTable(oneCell);
    IKVXSimpleTable *table = common->getTable(rates);
    host.network.failPost(QStringLiteral("gettable"));
    EXPECT_EQ(common->getTable(rates), nullptr);
    EXPECT_EQ(common->table(rates), table);
    EXPECT_EQ(cell(table), "1.50");
}

TEST_F(SharedTables, aCachedTableIsAnsweredWithoutARequest)
{
    answerTable(oneCell);
    IKVXSimpleTable *table = common->table(rates);
    EXPECT_EQ(requests(), 1);
    EXPECT_EQ(common->table(rates), table);
    host.unconfigure();
    EXPECT_EQ(common->table(rates), table);
    EXPECT_EQ(common->table(QStringLiteral("Rates")), nullptr); // another name
    EXPECT_EQ(requests(), 1);
}

TEST_F(SharedTables, anUpdateSendsTheTableAsItWritesItself)
{
    auto *table = new CountedTable(rates, alive);
    EXPECT_TRUE(common->updateTable(table));
    expectJson(host.network.takeRequest(), R"({"service":"updatetable",
        "Email":"anna@example.com","Table":{"tablename":"rates","tabledata":{"by":"host"}}})");
    EXPECT_EQ(host.network.lastUrl().toStdString(), "http://127.0.0.1:8090/kvx/service");
    EXPECT_EQ(committed, QStringList { rates });
    EXPECT_EQ(common->table(rates), table);
    EXPECT_EQ(alive, 1);
}

TEST_F(SharedTables, anUpdateIsJudgedByTheExchangeNotByTheStatus)
{
    host.network.answer(QStringLiteral("updatetable"), json(R"({"statuscode":300})"));
    EXPECT_TRUE(common->updateTable(new CountedTable(rates, alive)));
    EXPECT_EQ(committed, QStringList { rates });

    host.network.handle(QStringLiteral("updatetable"), [](const QJsonObject &, QJsonObject &reply) {
        reply = json(R"({"statuscode":1})");
        return false;
    });
    CountedTable refused(rates, alive);
    EXPECT_FALSE(common->updateTable(&refused));
    EXPECT_EQ(committed, QStringList { rates });
}

TEST_F(SharedTables, aRefusedUpdateLeavesTheTableToTheCallerAndTheCacheAsItWas)
{
    auto *cached = new CountedTable(rates, alive);
    EXPECT_TRUE(common->updateTable(cached));
    host.network.failPost(QStringLiteral("updatetable"));
    CountedTable mine(rates, alive); // the manager must not delete it
    EXPECT_FALSE(common->updateTable(&mine));
    EXPECT_EQ(common->table(rates), cached);
    EXPECT_EQ(alive, 2);
    common.reset();
    EXPECT_EQ(alive, 1);
}

TEST_F(SharedTables, anUpdateReplacesTheTableOfItsName)
{
    EXPECT_TRUE(common->updateTable(new CountedTable(rates, alive)));
    EXPECT_TRUE(common->updateTable(new CountedTable(QStringLiteral("other"), alive)));
    EXPECT_EQ(alive, 2);
    auto *second = new CountedTable(rates, alive);
    EXPECT_TRUE(common->updateTable(second));
    EXPECT_EQ(alive, 2);
    EXPECT_EQ(common->table(rates), second);
}

TEST_F(SharedTables, theVeryTableThatWasHandedOutCanBeUpdated)
{
    answerTable(oneCell);
    IKVXSimpleTable *table = common->getTable(rates);
    EXPECT_TRUE(common->updateTable(table));
    EXPECT_EQ(common->table(rates), table);
    EXPECT_EQ(cell(table), "1.50");
    EXPECT_TRUE(common->updateTable(common->table(rates)));
    EXPECT_EQ(cell(table), "1.50");
    EXPECT_EQ(committed, (QStringList { rates, rates }));
}

TEST_F(SharedTables, aTableThatChangedItsNameIsCachedUnderTheNewOneOnly)
{
    auto *table = new CountedTable(rates, alive);
    EXPECT_TRUE(common->updateTable(table));
    table->tableName = QStringLiteral("wages");
    EXPECT_TRUE(common->updateTable(table));
    EXPECT_EQ(common->table(QStringLiteral("wages")), table);
    EXPECT_EQ(alive, 1);
    answerTable(oneCell);
    EXPECT_EQ(cell(common->table(rates)), "1.50"); // fetched again
}

TEST_F(SharedTables, aPointerIsGoodUntilItsNameIsFetchedAgain)
{
    answerTable(oneCell);
    IKVXSimpleTable *table = common->getTable(rates);
    common->getTable(QStringLiteral("other"));
    EXPECT_TRUE(common->updateTable(new CountedTable(QStringLiteral("more"), alive)));
    EXPECT_EQ(cell(table), "1.50");
    // Still during the exchange: the new table comes before the old one goes.
    host.network.handle(
        QStringLiteral("gettable"), [table](const QJsonObject &, QJsonObject &reply) {
            EXPECT_EQ(cell(table), "1.50");
            reply = json(R"({"rates":{"rows":[["1.75"]]}})");
            return true;
        });
    IKVXSimpleTable *fresh = common->getTable(rates);
    EXPECT_EQ(cell(fresh), "1.75");
    EXPECT_EQ(common->table(rates), fresh);
}

#if defined(__SANITIZE_ADDRESS__)
TEST_F(SharedTables, aPointerIsNoLongerGoodOnceItsNameWasFetchedAgain)
{
    answerTable(oneCell);
    const IKVXSimpleTable *table = common->getTable(rates);
    common->getTable(rates);
    EXPECT_DEATH(table->name(), "heap-use-after-free");
}
#endif

TEST_F(SharedTables, atTheEndEveryTableGoesOnce)
{
    for (const char *name : { "a", "b", "a" }) {
        EXPECT_TRUE(common->updateTable(new CountedTable(QLatin1String(name), alive)));
    }
    EXPECT_EQ(alive, 2);
    common.reset();
    EXPECT_EQ(alive, 0);
}

TEST_F(SharedTables, theReplacedTableIsGoneAndTheNewOneCachedWhenTheCommitIsTold)
{
    EXPECT_TRUE(common->updateTable(new CountedTable(rates, alive)));
    auto *second = new CountedTable(rates, alive);
    bool told = false;
    QObject::connect(common.get(), &KVXCWCommon::commitFinish, [&](const QString &name) {
        told = true;
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(common->table(name), second);
    });
    EXPECT_TRUE(common->updateTable(second));
    EXPECT_TRUE(told);
}

TEST_F(SharedTables, aReceiverMayFetchTheTableAnewOrDestroyTheManager)
{
    answerTable(oneCell);
    QString told;
    QObject::connect(common.get(), &KVXCWCommon::commitFinish, [&](const QString &name) {
        common->getTable(name); // deletes the table that was just committed
        common.reset();
        told = name;
    });
    EXPECT_TRUE(common->updateTable(new CountedTable(rates, alive)));
    EXPECT_EQ(told, rates);
    EXPECT_EQ(alive, 0);
}

TEST_F(SharedTables, withoutAServerNothingIsSent)
{
    host.unconfigure();
    CountedTable table(rates, alive);
    EXPECT_FALSE(common->updateTable(&table));
    EXPECT_EQ(common->getTable(rates), nullptr);
    EXPECT_EQ(common->table(rates), nullptr);
    EXPECT_TRUE(committed.isEmpty());
    expectNoRequest(host);
}

TEST_F(SharedTables, noTableIsNoUpdate)
{
    EXPECT_FALSE(common->updateTable(nullptr));
    expectNoRequest(host);
}

TEST_F(SharedTables, withoutAUserTheEmailIsEmpty)
{
    host.removeUser();
    common->getTable(rates);
    EXPECT_EQ(host.network.takeRequest().value(QLatin1String("Email")), QJsonValue(QString()));
}

TEST_F(SharedTables, nothingIsLogged)
{
    common->getTable(rates);
    host.network.failPost(QStringLiteral("gettable"));
    common->getTable(rates);
    EXPECT_TRUE(host.takeLog().isEmpty());
}
