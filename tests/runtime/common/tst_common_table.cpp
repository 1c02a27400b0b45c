#include <KVXCommon/IKVXSimpleTable.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <gtest/gtest.h>
#include <memory>

namespace {

QJsonObject json(const char *text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text);
    EXPECT_TRUE(document.isObject()) << text;
    return document.object();
}

QJsonObject throughTable(const char *text)
{
    const std::unique_ptr<IKVXSimpleTable> table(IKVXSimpleTable::fromJson(json(text)));
    return table->toJson();
}

} // namespace

TEST(SimpleTable, WhatIsReadIsWrittenAgain)
{
    const char *text = R"({"tablename":"Factors","tabledata":{"columns":["Name","Wert"],
        "rows":[["Höhe","1,5"],["",""],[]],"revision":7,"note":{"by":"Anna"}}})";
    EXPECT_EQ(throughTable(text), json(text));
    const std::unique_ptr<IKVXSimpleTable> table(IKVXSimpleTable::fromJson(json(text)));
    EXPECT_EQ(table->name(), "Factors");
}

TEST(SimpleTable, EmptyDataGivesAnEmptyTableOfThatName)
{
    const QJsonObject empty = json(R"({"tablename":"T","tabledata":{"columns":[],"rows":[]}})");
    for (const char *text : { R"({"tablename":"T","tabledata":{}})", R"({"tablename":"T"})",
             R"({"tablename":"T","tabledata":null})", R"({"tablename":"T","tabledata":[1]})",
             R"({"tablename":"T","tabledata":{"columns":3,"rows":"x"}})" })
        EXPECT_EQ(throughTable(text), empty) << text;
}

TEST(SimpleTable, CellsBecomeText)
{
    EXPECT_EQ(
        throughTable(
            R"({"tablename":"T","tabledata":{"columns":["a",1],"rows":[[1.5,true,null],7]}})"),
        json(
            R"({"tablename":"T","tabledata":{"columns":["a","1"],"rows":[["1.5","true",""],[]]}})"));
}

TEST(SimpleTable, AnObjectThatIsNoTableHasNoName)
{
    const std::unique_ptr<IKVXSimpleTable> table(
        IKVXSimpleTable::fromJson(json(R"({"tablename":5})")));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->name(), "");
}
