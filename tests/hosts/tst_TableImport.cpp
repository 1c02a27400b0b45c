#include "content/Bill.h"

#include <gtest/gtest.h>

using namespace kvx::content;

namespace {

ImportResult import(const QByteArray &content)
{
    return importTable(content, QStringLiteral("page.tsv"));
}

std::string errorOf(const QByteArray &content)
{
    const ImportResult result = import(content);
    EXPECT_FALSE(result.bill);
    return result.error.toStdString();
}

const QByteArray columns = "Item\tDescription\tQuantity\tUnit\n";
const QByteArray priced = "Item\tDescription\tUnit\tQuantity\tRate\tAmount\n";
const QByteArray german = "Pos.\tBezeichnung\tMenge\tME\tEP\tGP\n";

} // namespace

TEST(TableImport, ReadsTheLinesBelowTheColumnNames)
{
    const ImportResult result = import("Bill of quantities,\tsection 02\n\n" + priced
        + "02.01.0010\tExcavate  trench\tm3\t1,240.00\t18.75\t23,250.00\n"
          "\tdepth to 1.50 m\n\tclass 3\n"
          "02.01.0020\tBackfill\tm3\t860.5\n");
    ASSERT_TRUE(result.bill) << result.error.toStdString();
    const Bill &bill = *result.bill;
    EXPECT_EQ(bill.title, QStringLiteral("page"));
    EXPECT_TRUE(bill.chapters.empty());
    ASSERT_EQ(bill.items.size(), 2u);
    EXPECT_EQ(bill.items.at(0).number, QStringLiteral("02.01.0010"));
    EXPECT_EQ(bill.items.at(0).shortText, QStringLiteral("Excavate trench"));
    EXPECT_EQ(bill.items.at(0).longText, QStringLiteral("depth to 1.50 m\nclass 3"));
    EXPECT_EQ(bill.items.at(0).unit, QStringLiteral("m3"));
    EXPECT_EQ(bill.items.at(0).quantity, 1240000);
    EXPECT_EQ(bill.items.at(0).rate, 18750);
    EXPECT_EQ(bill.items.at(1).quantity, 860500);
    EXPECT_FALSE(bill.items.at(1).rate);
}

TEST(TableImport, TheLanguageOfTheColumnNamesTellsTheDecimalSign)
{
    const ImportResult result = import(german + "1.10\tMauerwerk\t1.240,5\tm2\t2,00\t2.481,00\n");
    ASSERT_TRUE(result.bill) << result.error.toStdString();
    EXPECT_EQ(result.bill->items.at(0).quantity, 1240500);
    EXPECT_EQ(result.bill->items.at(0).rate, 2000);
}

TEST(TableImport, AFigureThatMayBeReadInTwoWaysIsNotGuessed)
{
    EXPECT_EQ(errorOf(columns + "1.10\tSteel\t28,400\tkg\n"),
        "page.tsv, line 2: \"28,400\" is not a quantity");
    EXPECT_EQ(errorOf(german + "1.10\tStahl\t28.400\tkg\n"),
        "page.tsv, line 2: \"28.400\" is not a quantity");
    EXPECT_EQ(errorOf(columns + "1.10\tSteel\t28,40.5\tkg\n"),
        "page.tsv, line 2: \"28,40.5\" is not a quantity");
}

TEST(TableImport, AnAmountThatIsNotQuantityTimesRateIsRefused)
{
    EXPECT_EQ(errorOf(priced + "1.10\tDoor\tpcs\t3\t18.75\t66.25\n"),
        "page.tsv, line 2: 3 times 18.75 is not 66.25");
    EXPECT_EQ(errorOf(priced + "1.10\tDoor\tpcs\t3\t18.75\t56.Z5\n"),
        "page.tsv, line 2: 3 times 18.75 is not 56.Z5");
}

TEST(TableImport, TheNextPageMayHaveItsColumnsInAnotherOrder)
{
    const ImportResult result = import(columns + "1.10\tDoor\t2\tpcs\n"
        + "Unit\tQuantity\tDescription\tItem\n" + "pcs\t3\tLock\t1.20\n");
    ASSERT_TRUE(result.bill) << result.error.toStdString();
    ASSERT_EQ(result.bill->items.size(), 2u);
    EXPECT_EQ(result.bill->items.at(1).shortText, QStringLiteral("Lock"));
    EXPECT_EQ(result.bill->items.at(1).quantity, 3000);
}

TEST(TableImport, NamesTheLineAndTheReason)
{
    EXPECT_EQ(
        errorOf(""), "page.tsv: no line names the columns (item, description, quantity, unit)");
    EXPECT_EQ(errorOf("1.10\tDoor\t2\tpcs\n"),
        "page.tsv: no line names the columns (item, description, quantity, unit)");
    EXPECT_EQ(errorOf(columns), "page.tsv: there is no item in the file");
    EXPECT_EQ(errorOf("Item\tDescription\tQuantity\tUnit\tColour\n"),
        "page.tsv, line 1: the column \"Colour\" is not known");
    EXPECT_EQ(
        errorOf(columns + "1.10\tDoor\t2\tpcs\tred\n"), "page.tsv, line 2: 5 columns instead of 4");
    EXPECT_EQ(errorOf(columns + "1.10\tDoor\t2\tpcs\nCarried forward\n"),
        "page.tsv, line 3: \"Carried forward\" is not an item number");
    EXPECT_EQ(errorOf(columns + "\tof oak\n"), "page.tsv, line 2: \"\" is not an item number");
    EXPECT_EQ(errorOf(columns + "1.10\tDoor\t2\tpcs\n\n1.10\tLock\t2\tpcs\n"),
        "page.tsv, line 4: the number 1.10 stands here twice");
    EXPECT_EQ(errorOf(columns + "1.10\t\t2\tpcs\n"), "page.tsv, line 2: the text is missing");
    EXPECT_EQ(errorOf(columns + "1.10\tDoor\t2\n"), "page.tsv, line 2: the unit is missing");
    EXPECT_EQ(
        errorOf(columns + "1.10\tDoor\ttwo\tpcs\n"), "page.tsv, line 2: \"two\" is not a quantity");
    EXPECT_EQ(errorOf(columns + "1.10\tDoor\t\tpcs\n"), "page.tsv, line 2: \"\" is not a quantity");
    EXPECT_EQ(
        errorOf(priced + "1.10\tDoor\tpcs\t2\tfree\n"), "page.tsv, line 2: \"free\" is not a rate");
    EXPECT_EQ(
        errorOf(columns + "1.10\tD\xfcr\t2\tpcs\n"), "page.tsv, line 2: the text is not UTF-8");
}
