#include "OcrFixture.h"

#include "ocr/OcrProgram.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <thread>

// Documents that are none, that lie about themselves, or that want all of the machine.

using namespace kvx::test;
using namespace kvx::server;
using testing::HasSubstr;

namespace {

class Hostile : public OcrFixture {
protected:
    Hostile()
        : OcrFixture([](Config &config) { config.ocrPageTime = 2000; })
    {
    }

    void expectRefused(const std::string &document, const std::string &reason)
    {
        const Answer answer = anna.upload(submission(), document);
        EXPECT_EQ(answer.status(), 680) << reason;
        EXPECT_EQ(answer.has("message") ? answer.text("message") : "",
            "The document cannot be read: " + reason + ".");
    }

    void expectBad(const Message &request, const std::string &key)
    {
        const Answer answer = anna.upload(request, pictureOf(smallPage(), "png"));
        EXPECT_EQ(answer.status(), 100) << request.json();
        if (answer.status() == 100) {
            EXPECT_THAT(answer.text("message"), HasSubstr(key));
        }
    }

    /// The server still works.
    void expectHealthy()
    {
        EXPECT_EQ(follow(anna, submit(anna, pictureOf(smallPage(), "png"))).state, "finished");
    }
};

std::string bigEndian(std::uint32_t value)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xff);
    return bytes;
}

/// A picture whose head claims that size.
std::string pngOfSize(std::uint32_t width, std::uint32_t height)
{
    std::string png = pictureOf(smallPage(), "png", 72);
    return png.replace(16, 8, bigEndian(width) + bigEndian(height));
}

std::string pdfWithPageTree(const std::string &pages)
{
    return "%PDF-1.4\n1 0 obj\n<< /Type /Catalog /Pages 2 0 R >>\nendobj\n2 0 obj\n" + pages
        + "\nendobj\ntrailer\n<< /Size 3 /Root 1 0 R >>\n%%EOF\n";
}

} // namespace

TEST_F(Hostile, WhatIsNoDocumentIsRefused)
{
    const std::string reason = "it is neither PNG, JPEG, TIFF, BMP nor PDF";
    expectRefused("just text", reason);
    expectRefused("", reason);
    expectRefused(std::string("MZ\0\0", 4) + std::string(1000, 'x'), reason);
    expectRefused("GIF89a" + std::string(1000, 'x'), reason);
}

TEST_F(Hostile, ATornDocumentIsRefusedOrItsPageFails)
{
    begin();
    for (const char *format : { "png", "jpg", "tif", "bmp" }) {
        const std::string whole = pictureOf(smallPage(), format);
        for (const std::size_t size : { std::size_t { 3 }, std::size_t { 20 }, whole.size() / 2 }) {
            const Answer answer = anna.upload(submission(), whole.substr(0, size));
            if (answer.status() == 1) {
                const Story story = follow(anna, answer.text("JobID"));
                EXPECT_TRUE(story.state == "finished" || story.state == "failed") << format;
            } else {
                EXPECT_EQ(answer.status(), 680) << format << ' ' << size;
            }
        }
    }
    expectRefused(pdfOf({ smallPage() }).substr(0, 30), "it is damaged");
    expectHealthy();
}

TEST_F(Hostile, ASizeInTheHeadIsBelievedBeforeAnythingIsDecoded)
{
    expectRefused(pngOfSize(100'000, 100'000), "it is too large (100000 x 100000 pixels)");
    expectRefused(pngOfSize(20'001, 10), "it is too large (20001 x 10 pixels)");
    expectRefused(pngOfSize(15'000, 15'000), "it is too large (15000 x 15000 pixels)");
    std::string bmp = pictureOf(smallPage(), "bmp", 72);
    bmp.replace(18, 4, std::string("\xff\xff\xff\x7f", 4));
    const Answer answer = anna.upload(submission(), bmp);
    EXPECT_EQ(answer.status(), 680);
    EXPECT_THAT(answer.text("message"), HasSubstr("it is too large"));
}

TEST_F(Hostile, APictureThatHoldsLessThanItsHeadClaimsFails)
{
    begin();
    const Story story = follow(anna, submit(anna, pngOfSize(9'000, 9'000)));
    EXPECT_EQ(story.state, "failed");
    ASSERT_EQ(story.pages.size(), 1u);
    EXPECT_THAT(story.pages[0].text, HasSubstr("Page 1 could not be recognised"));
    EXPECT_EQ(story.message, "The document cannot be read: none of its pages could be recognised.");
    expectHealthy();
}

TEST_F(Hostile, APdfOfTenThousandPagesIsRefusedUnlessSomeAreChosen)
{
    std::vector<DrawnPage> pages(10'000, DrawnPage(20, 20));
    pages[4711] = smallPage("Page 4712");
    const std::string pdf = pdfOf(pages);
    expectRefused(pdf, "it has more than 50 pages; choose some of them");
    begin();
    const Story story = follow(anna, submit(anna, pdf, submission(0, "[\"eng\"]", "[4711]")));
    ASSERT_EQ(story.pages.size(), 1u);
    EXPECT_THAT(story.pages[0].text, HasSubstr("Page 4712"));
    const Answer beyond = anna.upload(submission(0, "[\"eng\"]", "[9999]"), pdfOf({ smallPage() }));
    EXPECT_EQ(beyond.text("message"), "The document cannot be read: it has no page 10000.");
}

TEST_F(Hostile, APageTreeWithoutEndIsRefused)
{
    for (const char *tree : { "<< /Type /Pages /Kids [2 0 R] /Count 1 >>",
             "<< /Type /Pages /Kids [2 0 R 2 0 R] /Count 1000000000 >>",
             "<< /Type /Pages /Kids [] /Count -1 >>" }) {
        const auto start = std::chrono::steady_clock::now();
        const Answer answer = anna.upload(submission(), pdfWithPageTree(tree));
        EXPECT_EQ(answer.status(), 680) << tree;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    }
}

TEST_F(Hostile, APageAsLargeAsAFieldIsRefused)
{
    const Answer answer = anna.upload(submission(), pdfOf({ DrawnPage(72'000, 72'000) }));
    EXPECT_EQ(answer.status(), 680);
    EXPECT_THAT(answer.text("message"), HasSubstr("its page is too large"));
}

TEST_F(Hostile, AProtectedPdfIsRefused)
{
    std::string pdf = pdfOf({ smallPage() });
    const std::string id(16, 'a');
    pdf.replace(pdf.find("/Root 1 0 R"), 11,
        "/Root 1 0 R /ID [(" + id + ")(" + id + ")] /Encrypt << /Filter /Standard /V 1 /R 2 /O ("
            + std::string(32, 'x') + ") /U (" + std::string(32, 'y') + ") /P -1 >>");
    expectRefused(pdf, "it is protected by a password");
}

TEST_F(Hostile, APageThatTakesTooLongFailsAndTheJobGoesOn)
{
    begin();
    const std::string job = submit(anna, noisePdf({ smallPage("Behind the noise") }));
    const Story story = follow(anna, job);
    EXPECT_EQ(story.state, "finished");
    ASSERT_EQ(story.pages.size(), 2u);
    for (const Page &page : story.pages) {
        EXPECT_EQ(page.ok, page.index == 1);
        if (!page.ok) {
            EXPECT_EQ(page.text, "Page 1 could not be recognised: it takes too long.");
        }
    }
    expectHealthy();
}

TEST_F(Hostile, AStreamThatUnpacksWithoutEndDoesNotHoldTheServerUp)
{
    begin();
    const Story story = follow(anna, submit(anna, bombPdf()));
    EXPECT_TRUE(story.state == "failed" || story.state == "finished");
    expectHealthy();
}

TEST_F(Hostile, MalformedRequestsNameTheirKey)
{
    expectBad(submission(0, "[\"eng\"]", "[]", "../../etc/passwd"), "FileName");
    expectBad(submission(0, "[\"eng\"]", "[]", "C:\\scans\\a.pdf"), "FileName");
    expectBad(submission(0, "[\"eng\"]", "[]", ""), "FileName");
    expectBad(submission(0, "[\"../eng\"]"), "Languages");
    expectBad(submission(0, "[\"eng+deu\"]"), "Languages");
    expectBad(submission(0, "[\"\"]"), "Languages");
    expectBad(submission(0, "[7]"), "Languages");
    expectBad(submission(4), "ExportType");
    expectBad(submission(-1), "ExportType");
    expectBad(submission(0, "[\"eng\"]", "[-1]"), "PageIndexes");
    expectBad(submission(0, "[\"eng\"]", "[10000]"), "PageIndexes");
    expectBad(submission(0, "[\"eng\"]", "[1.5]"), "PageIndexes");
    expectBad(submission(0, "[\"eng\"]", "{}"), "PageIndexes");
    std::string many = "[0";
    for (int page = 1; page <= 50; ++page)
        many += "," + std::to_string(page);
    expectBad(submission(0, "[\"eng\"]", many + "]"), "PageIndexes");
    EXPECT_EQ(anna.ask(Message("submit").set("FileName", "a.png")).status(), 100); // no file
}

TEST_F(Hostile, ALanguageThatIsNotInstalledIsNamed)
{
    const Answer answer
        = anna.upload(submission(0, "[\"eng\",\"tlh\"]"), pictureOf(smallPage(), "png"));
    EXPECT_EQ(answer.status(), 681);
    EXPECT_EQ(answer.text("message"), "Recognition of \"tlh\" is not installed.");
}

TEST_F(Hostile, WhoHasNoRoleMayNot)
{
    const Session guest = harness.join("guest@example.com", "");
    EXPECT_EQ(guest.upload(submission(), pictureOf(smallPage(), "png")).status(), 300);
    EXPECT_EQ(guest.ask(Message("languages")).status(), 300);
}

TEST_F(Hostile, ADocumentOverFiftyMebibytesIsRefused)
{
    const Answer answer = anna.upload(submission(), std::string((50u << 20) + 1, 'x'));
    EXPECT_EQ(answer.status(), 102);
}

TEST_F(Hostile, AProgramThatIsNotThereIsTheServersFault)
{
    harness.config().ocrProgram = "/nowhere/kvx-ocr-worker";
    const Answer answer = anna.upload(submission(), pictureOf(smallPage(), "png"));
    EXPECT_EQ(answer.status(), 0);
    const Answer again = anna.ask(Message("languages"));
    EXPECT_EQ(again.status(), 0);
}

TEST_F(Hostile, NothingIsLeftBehindInTheTemporaryFolder)
{
    begin();
    const std::string job = submit(anna, pdfOf({ smallPage() }), submission(2));
    EXPECT_EQ(follow(anna, job).state, "finished");
    anna.upload(submission(), "just text");
    end();
    // The refused document goes just after its answer has.
    const std::filesystem::path folder = harness.folder() + "/tmp";
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!std::filesystem::is_empty(folder) && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(Hostile, TheProgramGivesUpWhatItDoesNotNeed)
{
    const auto outcome = OcrProgram(harness.config()).run({ { "protections" }, 5, {}, {}, {} });
    EXPECT_EQ(outcome.end, OcrProgram::Outcome::End::Done);
    EXPECT_THAT(outcome.output, HasSubstr("limits"));
    EXPECT_THAT(outcome.output, HasSubstr("calls"));
}
