#include "ocr/worker/TableText.h"

#include <gtest/gtest.h>

using kvx::ocr::tableText;
using kvx::ocr::Word;

namespace {

/// A word of letters 20 high and 10 wide.
Word word(int left, int top, const std::string &text)
{
    return { text, left, top, left + static_cast<int>(text.size()) * 10, top + 20 };
}

} // namespace

TEST(TableText, NothingIsNothing)
{
    EXPECT_EQ(tableText({}), "");
}

TEST(TableText, WordsOfOneSentenceStayInOneCell)
{
    EXPECT_EQ(tableText({ word(0, 0, "Dig"), word(40, 0, "the"), word(80, 0, "trench") }),
        "Dig the trench\n");
}

TEST(TableText, AColumnBeginsBehindAFreeStrip)
{
    EXPECT_EQ(tableText({ word(0, 0, "Item"), word(200, 0, "Unit"), word(0, 50, "010"),
                  word(200, 50, "m3") }),
        "Item\tUnit\n010\tm3\n");
}

TEST(TableText, AnEmptyCellKeepsTheColumnsInPlace)
{
    EXPECT_EQ(tableText({ word(0, 0, "a"), word(100, 0, "b"), word(200, 0, "c"), word(0, 50, "d"),
                  word(200, 50, "f"), word(100, 100, "e") }),
        "a\tb\tc\nd\t\tf\n\te\n");
}

TEST(TableText, NumbersSetToTheRightShareAColumn)
{
    EXPECT_EQ(tableText({ word(0, 0, "a"), word(150, 0, "12345.00"), word(0, 50, "b"),
                  word(200, 50, "1.5") }),
        "a\t12345.00\nb\t1.5\n");
}

TEST(TableText, AHeadingAcrossColumnsStandsWhereItBegins)
{
    EXPECT_EQ(tableText({ word(0, 0, "Earthworks"), word(110, 0, "and"), word(150, 0, "drainage"),
                  word(0, 50, "010"), word(120, 50, "Dig") }),
        "Earthworks and drainage\n010\tDig\n");
}

TEST(TableText, ARowMayHangALittle)
{
    EXPECT_EQ(
        tableText({ word(0, 0, "a"), word(200, 8, "b"), word(0, 50, "c"), word(200, 58, "d") }),
        "a\tb\nc\td\n");
}

TEST(TableText, AWordCannotForgeAColumnOrARow)
{
    EXPECT_EQ(tableText({ { "a\tb\nc", 0, 0, 50, 20 } }), "a b c\n");
}

TEST(TableText, WordsWithoutASizeDoNoHarm)
{
    EXPECT_EQ(tableText({ { "a", 5, 5, 5, 5 }, { "b", 5, 5, 5, 5 } }), "a b\n");
    EXPECT_EQ(tableText({ { "a", -10, -10, -20, -30 } }), "a\n");
}
