#include "content/Bill.h"

#include <gtest/gtest.h>

using namespace kvx::content;

namespace {

ImportResult import(const QByteArray &content)
{
    return importCsv(content, QStringLiteral("bill.csv"));
}

std::string errorOf(const QByteArray &content)
{
    const ImportResult result = import(content);
    EXPECT_FALSE(result.bill);
    return result.error.toStdString();
}

const QByteArray head = "number;text;unit;quantity;rate\n";

} // namespace

TEST(CsvImport, ReadsChaptersItemsAndTexts)
{
    const ImportResult result = import("number;text;unit;quantity;rate;longtext;kind\n"
                                       "01;Earthworks;;;;;\n"
                                       "01.02;Excavation;;;;;\n"
                                       "01.02.0010;Excavate soil;m3;1.100,5;12,50;\"Class 3;\n"
                                       "\"\"loose\"\"\";optional\n"
                                       "02;Ground floor slab;m2;3;;;\n");
    ASSERT_TRUE(result.bill) << result.error.toStdString();
    const Bill &bill = *result.bill;
    EXPECT_EQ(bill.title, QStringLiteral("bill"));
    ASSERT_EQ(bill.chapters.size(), 2u);
    EXPECT_EQ(bill.chapters.at(1).parent, 0);
    EXPECT_EQ(bill.chapters.at(1).title, QStringLiteral("Excavation"));
    ASSERT_EQ(bill.items.size(), 2u);
    EXPECT_EQ(bill.items.at(0).chapter, 1);
    EXPECT_EQ(bill.items.at(0).quantity, 1100500);
    EXPECT_EQ(bill.items.at(0).rate, 12500);
    EXPECT_EQ(bill.items.at(0).longText, QStringLiteral("Class 3;\n\"loose\""));
    EXPECT_EQ(bill.items.at(0).kind, QStringLiteral("optional"));
    EXPECT_EQ(bill.items.at(1).chapter, -1);
    EXPECT_FALSE(bill.items.at(1).rate);
}

TEST(CsvImport, TakesCommasTabsByteOrderMarkAndCarriageReturns)
{
    for (const char separator : { ',', '\t', ';' }) {
        QByteArray content = "\xef\xbb\xbfnumber;text;unit;quantity;rate\r\n1;Door;pcs;2;10.5\r\n";
        content.replace(';', separator);
        const ImportResult result = import(content);
        ASSERT_TRUE(result.bill) << separator << result.error.toStdString();
        EXPECT_EQ(result.bill->items.at(0).rate, 10500);
    }
}

TEST(CsvImport, NamesTheLineAndTheReason)
{
    EXPECT_EQ(errorOf(""), "bill.csv, line 1: the file is empty");
    EXPECT_EQ(
        errorOf("number;text;unit;quantity\n"), "bill.csv, line 1: there is no column \"rate\"");
    EXPECT_EQ(errorOf(head), "bill.csv, line 1: there is no item in the file");
    EXPECT_EQ(errorOf(head + "1;Door;pcs;2\n"), "bill.csv, line 2: 4 fields instead of 5");
    EXPECT_EQ(errorOf(head + "1;Door;pcs;two;1\n"), "bill.csv, line 2: \"two\" is not a quantity");
    EXPECT_EQ(
        errorOf(head + "1;Door;pcs;2;1.23456\n"), "bill.csv, line 2: \"1.23456\" is not a rate");
    EXPECT_EQ(errorOf(head + ";Door;pcs;2;1\n"), "bill.csv, line 2: the number is missing");
    EXPECT_EQ(errorOf(head + "1;Door;pcs;2;1\n1;Door;pcs;2;1\n"),
        "bill.csv, line 3: the number 1 stands here twice");
    EXPECT_EQ(errorOf(head + "1;\"Door;pcs;2;1\n"),
        "bill.csv, line 2: the quotation mark is never closed");
    EXPECT_EQ(errorOf(head + "1;\"Door\"x;pcs;2;1\n"),
        "bill.csv, line 2: text follows the closing quotation mark");
    EXPECT_EQ(errorOf(head + "1;D\xfcr;pcs;2;1\n"), "bill.csv, line 2: the text is not UTF-8");
}

TEST(CsvImport, CountsLinesInsideQuotedTexts)
{
    EXPECT_EQ(errorOf(head + "1;\"two\nlines\";pcs;2;1\n2;Door;pcs;x;1\n"),
        "bill.csv, line 4: \"x\" is not a quantity");
}

TEST(CsvImport, SkipsEmptyLinesAndAMissingLastLineEnd)
{
    const ImportResult result = import(head + "\n1;Door;pcs;2;1\n\n2;Lock;pcs;2;1");
    ASSERT_TRUE(result.bill) << result.error.toStdString();
    EXPECT_EQ(result.bill->items.size(), 2u);
}

TEST(CsvImport, EveryCutOfAFileEndsInABillOrAnError)
{
    const QByteArray whole = head + "01;Works;;;\n01.1;\"Quoted \"\"text\"\"\";m;1,5;2\n";
    for (int size = 0; size <= whole.size(); ++size) {
        const ImportResult result = import(whole.left(size));
        EXPECT_NE(result.bill.has_value(), !result.error.isEmpty()) << size;
    }
}
