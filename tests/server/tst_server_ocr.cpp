#include "OcrFixture.h"

#include "base/Text.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>

// Pages that are drawn here, recognised by the real program.

using namespace kvx::test;
using testing::HasSubstr;

namespace {

constexpr double wanted = 0.98;

class Recognition : public OcrFixture {
protected:
    Recognition() { begin(); }

    std::string textOf(const std::string &document, const Message &request = submission())
    {
        const Story story = follow(anna, submit(anna, document, request));
        EXPECT_EQ(story.state, "finished");
        EXPECT_EQ(story.pages.size(), 1u);
        if (story.pages.empty())
            return {};
        EXPECT_TRUE(story.pages[0].ok) << story.pages[0].text;
        return story.pages[0].text;
    }
};

std::string expectedTable()
{
    std::string text;
    for (const auto &row : billRows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            text += (i > 0 ? "\t" : "") + row[i];
        text += '\n';
    }
    return text;
}

/// Each row's quantity and unit, behind its description.
void expectQuantities(const std::string &text, const std::string &separator)
{
    for (std::size_t i = 1; i < scheduleRows.size(); ++i) {
        const auto &row = scheduleRows[i];
        EXPECT_THAT(text, HasSubstr(row[1] + separator + row[2] + separator + row[3] + '\n'));
    }
}

} // namespace

TEST_F(Recognition, AScannedBillComesBackRowByRow)
{
    const std::string text = textOf(pictureOf(billPage(), "png"));
    EXPECT_GE(recognisedShare(billPage().expected(), text), wanted) << text;
    EXPECT_THAT(text, HasSubstr("m3 1,240.00 18.75 23,250.00\n"));
}

TEST_F(Recognition, GermanWordsComeBackWithTheirUmlauts)
{
    const std::string text
        = textOf(pictureOf(germanPage(), "png"), submission(0, "[\"deu\",\"eng\"]"));
    EXPECT_GE(recognisedShare(germanPage().expected(), text), wanted) << text;
    for (const char *word : { "Türen", "gemäß", "Übersichtsplan", "Öffnungen", "Größe" })
        EXPECT_THAT(text, HasSubstr(word));
}

TEST_F(Recognition, EveryPictureFormatIsRead)
{
    for (const char *format : { "png", "jpg", "tif", "bmp" }) {
        const std::string text = textOf(pictureOf(smallPage(), format));
        EXPECT_GE(recognisedShare(smallPage().expected(), text), wanted) << format << ": " << text;
    }
}

TEST_F(Recognition, APdfComesBackPageByPage)
{
    const Story story = follow(
        anna, submit(anna, pdfOf({ billPage(), germanPage() }), submission(0, "[\"deu\"]")));
    EXPECT_EQ(story.state, "finished");
    ASSERT_EQ(story.pages.size(), 2u);
    for (const Page &page : story.pages) {
        const DrawnPage drawn = page.index == 0 ? billPage() : germanPage();
        EXPECT_GE(recognisedShare(drawn.expected(), page.text), wanted) << page.text;
    }
}

TEST_F(Recognition, OnlyTheWantedPagesAreDone)
{
    const std::string tiff
        = tiffOf({ smallPage("First page"), smallPage("Second page"), smallPage("Third page") });
    const Answer submitted = anna.upload(submission(0, "[\"eng\"]", "[2,1,2]"), tiff);
    EXPECT_EQ(submitted.integer("Pages"), 2);
    const Story story = follow(anna, submitted.text("JobID"));
    ASSERT_EQ(story.pages.size(), 2u);
    for (const Page &page : story.pages)
        EXPECT_THAT(page.text, HasSubstr(page.index == 1 ? "Second page" : "Third page"));
}

TEST_F(Recognition, ATableHasTabsBetweenItsColumns)
{
    const std::string text = textOf(pictureOf(billPage(), "png"), submission(3));
    EXPECT_THAT(text, HasSubstr(expectedTable()));
}

TEST_F(Recognition, WholeQuantitiesAndUnitsFarToTheRightStay)
{
    for (const std::vector<double> &columns :
        { scheduleColumns, { 50, 120, 400, 540 }, { 50, 120, 330, 540 }, { 50, 120, 370, 440 } }) {
        const DrawnPage page = schedulePage(columns);
        for (const double dpi : { 300.0, 150.0 }) {
            SCOPED_TRACE(std::to_string(columns[2]) + " at " + std::to_string(dpi));
            const std::string picture = pictureOf(page, "png", dpi);
            const std::string text = textOf(picture);
            EXPECT_GE(recognisedShare(page.expected(), text), wanted) << text;
            if (dpi == 300)
                expectQuantities(text, " ");
            const std::string table = textOf(picture, submission(3));
            EXPECT_GE(recognisedShare(page.expected(), table), wanted) << table;
            if (dpi == 300)
                expectQuantities(table, "\t");
        }
    }
}

TEST_F(Recognition, TheRulesOfATableAreNoText)
{
    const DrawnPage page = ruledSchedulePage();
    const std::string text = textOf(pictureOf(page, "png"));
    EXPECT_GE(recognisedShare(page.expected(), text), wanted) << text;
    expectQuantities(textOf(pictureOf(page, "jpg"), submission(3)), "\t");
}

TEST_F(Recognition, LightLettersInADarkBandAreRead)
{
    const std::string text = textOf(pictureOf(darkHeadedPage(), "png"), submission(3));
    EXPECT_GE(recognisedShare(darkHeadedPage().expected(), text), wanted) << text;
    EXPECT_THAT(text, HasSubstr("Item\tDescription\tQuantity\tUnit\n"));
    expectQuantities(text, "\t");
}

TEST_F(Recognition, ASearchablePdfKeepsTheRulesInItsPicture)
{
    const auto inkAs = [this](const DrawnPage &page) {
        const std::string job = submit(anna, pdfOf({ page }), submission(2));
        EXPECT_EQ(follow(anna, job).state, "finished");
        return inkOf(anna.ask(Message("result").set("JobID", job)).fileBytes(), 0);
    };
    EXPECT_GT(inkAs(ruledSchedulePage()), 1.1 * inkAs(schedulePage()));
}

TEST_F(Recognition, TheProgramNeedsNothingFromItsCaller)
{
    const std::string folder = harness.folder();
    std::ofstream(folder + "/page.png", std::ios::binary) << pictureOf(smallPage(), "png");
    const std::string command = "env -i " KVX_OCR_PROGRAM " 20 page 0 0 eng < '" + folder
        + "/page.png' 3> '" + folder + "/page.txt'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::ifstream file(folder + "/page.txt");
    const std::string text { std::istreambuf_iterator<char>(file), {} };
    EXPECT_THAT(text, HasSubstr("Concrete"));
}

TEST_F(Recognition, HOcrTellsWhereEachWordStands)
{
    const std::string text = textOf(pictureOf(smallPage(), "png"), submission(1));
    EXPECT_THAT(text, HasSubstr("<?xml"));
    EXPECT_THAT(text, HasSubstr("class='ocrx_word'"));
    EXPECT_THAT(text, HasSubstr(">Concrete</span>"));
    EXPECT_THAT(text, HasSubstr("</html>"));
}

TEST_F(Recognition, ASearchablePdfHasPictureAndText)
{
    const std::string job = submit(anna, pdfOf({ billPage(), smallPage() }), submission(2));
    const Story story = follow(anna, job);
    EXPECT_EQ(story.state, "finished");
    ASSERT_EQ(story.pages.size(), 2u); // putting them together is none
    for (const Page &page : story.pages)
        EXPECT_THAT(page.text, HasSubstr(page.index == 0 ? "Bill of quantities" : "Concrete"));

    const Answer document = anna.ask(Message("result").set("JobID", job));
    ASSERT_TRUE(document.isFile()) << document.json();
    const std::string pdf = document.fileBytes();
    EXPECT_EQ(pdfPages(pdf), 2);
    EXPECT_THAT(pdfText(pdf, 1), HasSubstr("Concrete C25/30"));
    EXPECT_GT(inkOf(pdf, 0), 0.005);

    const Answer page = anna.ask(Message("result").set("JobID", job).set("PageIndex", 1));
    ASSERT_TRUE(page.isFile()) << page.json();
    EXPECT_EQ(pdfPages(page.fileBytes()), 1);
}

TEST_F(Recognition, APageOnItsSideIsTurned)
{
    const std::string text
        = textOf(pictureOf(germanPage(), "png", 300, 1), submission(0, "[\"deu\"]"));
    EXPECT_GE(recognisedShare(germanPage().expected(), text), wanted) << text;
}

TEST_F(Recognition, AnEmptyPageHasNoText)
{
    EXPECT_EQ(kvx::server::trimmed(textOf(pictureOf(DrawnPage(200, 200), "png"))), "");
}

TEST_F(Recognition, AResultCanBeFetchedAsAFile)
{
    const std::string job = submit(anna, pictureOf(smallPage(), "png"));
    const Story story = follow(anna, job);
    const Answer file = anna.ask(Message("result").set("JobID", job).set("PageIndex", 0));
    ASSERT_TRUE(file.isFile());
    EXPECT_EQ(file.fileBytes(), story.pages.at(0).text);
    EXPECT_EQ(anna.ask(Message("result").set("JobID", job).set("PageIndex", 1)).status(), 682);
    EXPECT_EQ(anna.ask(Message("result").set("JobID", job)).status(), 100); // no document
}

TEST_F(Recognition, InstalledLanguagesAreListed)
{
    const Answer answer = anna.ask(Message("languages"));
    ASSERT_EQ(answer.status(), 1);
    std::vector<std::string> languages;
    for (const auto &language : answer["Languages"].GetArray())
        languages.push_back(language.GetString());
    EXPECT_THAT(languages, testing::IsSupersetOf({ "deu", "eng" }));
    EXPECT_THAT(languages, testing::Not(testing::Contains("osd")));
}

TEST_F(Recognition, NoLanguageMeansEnglish)
{
    const std::string text = textOf(pictureOf(smallPage(), "png"), submission(0, "[]"));
    EXPECT_THAT(text, HasSubstr("Concrete"));
}
