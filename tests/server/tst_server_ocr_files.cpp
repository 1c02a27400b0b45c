#include "OcrFixture.h"
#include "support/WaitFor.h"

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <zlib.h>

// Documents made to harm whoever opens them. Each is refused, or its job ends within its limits;
// the server goes on, and nothing that a document asks for is done.

using namespace kvx::test;
using namespace kvx::server;

namespace {

enum class End {
    Refused, ///< before anything is decoded
    Ends ///< accepted or refused, as the libraries see it; a job of it ends
};

struct HostileDocument {
    const char *name;
    End end;
    std::function<std::string()> bytes;
};

void PrintTo(const HostileDocument &document, std::ostream *out)
{
    *out << document.name;
}

std::string number(std::uint32_t value, int size, bool littleEndian)
{
    std::string bytes;
    for (int i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> 8 * (littleEndian ? i : size - 1 - i) & 0xff);
    return bytes;
}

std::string big(std::uint32_t value, int size = 4)
{
    return number(value, size, false);
}

std::string little(std::uint32_t value, int size = 4)
{
    return number(value, size, true);
}

/// As much of nothing as that, packed.
std::string packedZeros(std::size_t size)
{
    const std::string zeros(size, '\0');
    uLongf length = compressBound(size);
    std::string packed(length, '\0');
    compress2(reinterpret_cast<Bytef *>(packed.data()), &length,
        reinterpret_cast<const Bytef *>(zeros.data()), size, 9);
    packed.resize(length);
    return packed;
}

std::string chunk(const std::string &type, const std::string &data)
{
    const std::string body = type + data;
    const auto *bytes = reinterpret_cast<const Bytef *>(body.data());
    return big(static_cast<std::uint32_t>(data.size())) + body
        + big(static_cast<std::uint32_t>(crc32(0, bytes, static_cast<uInt>(body.size()))));
}

const std::string pngMagic = "\x89PNG\r\n\x1a\n";

std::string png(std::uint32_t width, std::uint32_t height, const std::string &rest, int depth = 8,
    int colour = 0)
{
    return pngMagic
        + chunk("IHDR",
            big(width) + big(height) + static_cast<char>(depth) + static_cast<char>(colour)
                + std::string(3, '\0'))
        + rest + chunk("IEND", "");
}

std::string tinyPixels()
{
    return chunk("IDAT", packedZeros(40 * 41));
}

/// Magic, one directory with these entries (tag, type, count, value), the next directory's place.
std::string tiff(const std::vector<std::array<std::uint32_t, 4>> &entries, std::uint32_t next = 0)
{
    std::string bytes = std::string("II*\0", 4) + little(8)
        + little(static_cast<std::uint32_t>(entries.size()), 2);
    for (const auto &[tag, type, count, value] : entries)
        bytes += little(tag, 2) + little(type, 2) + little(count) + little(value);
    return bytes + little(next);
}

std::vector<std::array<std::uint32_t, 4>> tiffEntries(
    std::uint32_t width, std::uint32_t height, std::uint32_t compression, std::uint32_t stripBytes)
{
    return { { 256, 4, 1, width }, { 257, 4, 1, height }, { 258, 3, 1, 8 },
        { 259, 3, 1, compression }, { 262, 3, 1, 1 }, { 273, 4, 1, 150 }, { 277, 3, 1, 1 },
        { 278, 4, 1, height }, { 279, 4, 1, stripBytes } };
}

std::string padded(std::string bytes, std::size_t size)
{
    bytes.resize(size, '\0');
    return bytes;
}

std::string bmp(std::uint32_t width, std::uint32_t height, std::uint32_t bits,
    std::uint32_t compression, const std::string &pixels, std::uint32_t offset = 54)
{
    return "BM" + little(static_cast<std::uint32_t>(54 + pixels.size())) + little(0)
        + little(offset) + little(40) + little(width) + little(height) + little(1, 2)
        + little(bits, 2) + little(compression) + little(0) + little(2835) + little(2835)
        + little(0) + little(0) + pixels;
}

std::string segment(unsigned char marker, const std::string &data)
{
    return std::string("\xff") + static_cast<char>(marker)
        + big(static_cast<std::uint32_t>(data.size() + 2), 2) + data;
}

std::string jpegHead(unsigned char frame, std::uint32_t width, std::uint32_t height, int depth = 8)
{
    return "\xff\xd8" + segment(0xdb, std::string(1, '\0') + std::string(64, '\1'))
        + segment(frame,
            static_cast<char>(depth) + big(height, 2) + big(width, 2)
                + std::string("\1\1\x11\0", 4))
        + segment(0xc4, std::string(1, '\0') + '\1' + std::string(15, '\0') + '\0')
        + segment(0xc4, '\x10' + std::string("\1") + std::string(15, '\0') + '\0');
}

std::string jpegScan(const std::string &spectrum, const std::string &data)
{
    return segment(0xda, std::string("\1\1\0", 3) + spectrum) + data;
}

std::string pdf(const std::vector<std::string> &objects, const std::string &trailer = {})
{
    std::string text = "%PDF-1.7\n";
    for (std::size_t i = 0; i < objects.size(); ++i)
        text += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    return text + "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R "
        + trailer + " >>\n%%EOF\n";
}

std::string stream(const std::string &dictionary, const std::string &data)
{
    return "<< " + dictionary + " /Length " + std::to_string(data.size()) + " >>\nstream\n" + data
        + "\nendstream";
}

/// A document of one page; its further entries, its content, and objects from number 5.
std::string onePage(const std::string &entries, const std::string &content,
    const std::vector<std::string> &more = {}, const std::string &catalog = {},
    const std::string &box = "0 0 200 100")
{
    std::vector<std::string> objects { "<< /Type /Catalog /Pages 2 0 R " + catalog + " >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [" + box + "] /Contents 4 0 R " + entries + " >>",
        stream("", content) };
    objects.insert(objects.end(), more.begin(), more.end());
    return pdf(objects);
}

const std::string shownText = "BT /F 20 Tf 10 40 Td (Concrete) Tj ET";

std::string withFont(const std::string &type, const std::string &key, const std::string &program,
    const std::string &filter = {})
{
    return onePage("/Resources << /Font << /F 5 0 R >> >>", shownText,
        { "<< /Type /Font /Subtype /" + type
                + " /BaseFont /X /FirstChar 32 /LastChar 33 /Widths [500 "
                  "500] /FontDescriptor 6 0 R >>",
            "<< /Type /FontDescriptor /FontName /X /Flags 4 /FontBBox [0 0 1000 1000] /ItalicAngle "
            "0 "
            "/Ascent 800 /Descent 0 /CapHeight 700 /StemV 80 /"
                + key + " 7 0 R >>",
            stream(filter + " /Length1 " + std::to_string(program.size()), program) });
}

std::string withImage(const std::string &dictionary, const std::string &data)
{
    return onePage("/Resources << /XObject << /I 5 0 R >> >>", "200 0 0 100 0 0 cm /I Do",
        { stream("/Type /XObject /Subtype /Image " + dictionary, data) });
}

std::string withAction(const std::string &action)
{
    return onePage("/AA << /O " + action + " >>", shownText, {}, "/OpenAction " + action);
}

/// A program that would leave this behind.
std::string markerPath()
{
    return (std::filesystem::temp_directory_path() / "kvx-ocr-launched").string();
}

const std::vector<HostileDocument> hostileDocuments {
    { "pngOfAHundredThousandSquared", End::Refused, [] { return png(100'000, 100'000, ""); } },
    { "pngWithoutWidth", End::Refused, [] { return png(0, 10, ""); } },
    { "pngOfNegativeSize", End::Refused, [] { return png(0xffffffff, 0xffffffff, ""); } },
    { "pngThatUnpacksToAHundredMegabytes", End::Ends,
        [] { return png(20'000, 5'000, chunk("IDAT", packedZeros(20'001 * 5'000))); } },
    { "pngWithACommentThatUnpacksWithoutEnd", End::Ends,
        [] {
            return png(40, 40,
                chunk("zTXt", std::string("a\0\0", 3) + packedZeros(64 << 20)) + tinyPixels());
        } },
    { "pngWithAColourProfileThatUnpacksWithoutEnd", End::Ends,
        [] {
            return png(40, 40,
                chunk("iCCP", std::string("a\0\0", 3) + packedZeros(64 << 20)) + tinyPixels());
        } },
    { "pngWhoseChunkIsLongerThanTheFile", End::Ends,
        [] { return png(40, 40, big(0x7fffffff) + "IDAT"); } },
    { "pngWithAWrongChecksum", End::Ends,
        [] {
            std::string bytes = png(40, 40, tinyPixels());
            bytes[29] = static_cast<char>(bytes[29] + 1);
            return bytes;
        } },
    { "pngWithoutItsPalette", End::Ends, [] { return png(40, 40, tinyPixels(), 8, 3); } },
    { "pngOfAnUnknownDepth", End::Ends, [] { return png(40, 40, tinyPixels(), 77); } },
    { "jpegOfSixtyFiveThousandSquared", End::Refused,
        [] {
            return jpegHead(0xc0, 65'535, 65'535) + jpegScan({ "\0\x3f\0", 3 }, "\xff\xd9");
        } },
    { "jpegWithoutHeight", End::Refused,
        [] {
            return jpegHead(0xc0, 100, 0) + jpegScan({ "\0\x3f\0", 3 }, "\xff\xd9");
        } },
    { "jpegCutInItsScan", End::Ends,
        [] {
            return jpegHead(0xc0, 100, 100) + jpegScan({ "\0\x3f\0", 3 }, "\x12\x34");
        } },
    { "jpegOfTwelveBits", End::Ends,
        [] {
            return jpegHead(0xc1, 100, 100, 12) + jpegScan({ "\0\x3f\0", 3 }, "\xff\xd9");
        } },
    { "jpegOfAThousandScans", End::Ends,
        [] {
            std::string bytes = jpegHead(0xc2, 9'900, 9'900);
            for (int i = 0; i < 1'000; ++i)
                bytes += jpegScan({ "\1\1\0", 3 }, { "\0", 1 });
            return bytes + "\xff\xd9";
        } },
    { "jpegOfNothingButMarkers", End::Ends,
        [] { return "\xff\xd8\xff" + std::string(1 << 20, '\xff'); } },
    { "bmpWithoutWidth", End::Refused, [] { return bmp(0, 10, 24, 0, ""); } },
    { "bmpOfTheLowestHeight", End::Refused, [] { return bmp(10, 0x80000000, 24, 0, ""); } },
    { "bmpWithoutPixels", End::Ends, [] { return bmp(5'000, 5'000, 24, 0, ""); } },
    { "bmpWhosePixelsLieBehindItsEnd", End::Ends,
        [] { return bmp(4, 4, 24, 0, std::string(64, '\0'), 0x7fffffff); } },
    { "bmpOfRunsThatLeaveThePicture", End::Ends,
        [] { return bmp(10, 10, 8, 1, std::string(100'000, '\xff')); } },
    { "bmpOfNoBits", End::Ends, [] { return bmp(10, 10, 0, 0, std::string(400, '\0')); } },
    { "tiffInACircle", End::Ends, [] { return padded(tiff(tiffEntries(4, 3, 1, 12), 8), 400); } },
    { "tiffWhoseDirectoryLiesBehindItsEnd", End::Refused,
        [] { return std::string("II*\0", 4) + little(0x7ffffff0) + std::string(20, '\0'); } },
    { "tiffOfTheLargestSize", End::Refused,
        [] { return padded(tiff(tiffEntries(0xffffffff, 0xffffffff, 1, 12)), 400); } },
    { "tiffWhoseStripIsLongerThanTheFile", End::Ends,
        [] { return padded(tiff(tiffEntries(100, 100, 1, 0xffffffff)), 400); } },
    { "tiffThatUnpacksToAHundredMegabytes", End::Ends,
        [] {
            const std::string pixels = packedZeros(9'900 * 9'900);
            return padded(tiff(tiffEntries(
                              9'900, 9'900, 8, static_cast<std::uint32_t>(pixels.size()))),
                       150)
                + pixels;
        } },
    { "tiffOfTilesWithoutSize", End::Ends,
        [] {
            auto entries = tiffEntries(100, 100, 1, 12);
            entries.insert(entries.end(),
                { { 322, 4, 1, 0 }, { 323, 4, 1, 0 }, { 324, 4, 1, 150 }, { 325, 4, 1, 1 } });
            return padded(tiff(entries), 400);
        } },
    { "tiffOfMoreValuesThanBytes", End::Ends,
        [] {
            auto entries = tiffEntries(100, 100, 1, 12);
            entries[5] = { 273, 4, 0x40000000, 8 };
            return padded(tiff(entries), 400);
        } },
    { "tiffOfTheLargeFormat", End::Refused,
        [] { return std::string("II+\0\x08\0\0\0", 8) + std::string(100, '\0'); } },
    { "pdfThatRunsAScript", End::Ends,
        [] {
            return withAction(
                "<< /S /JavaScript /JS (while\\(1\\){app.launchURL\\('http://127.0.0.1/'\\)}) "
                ">>");
        } },
    { "pdfThatStartsAProgram", End::Ends,
        [] {
            return withAction("<< /S /Launch /F (/usr/bin/touch) /Unix << /F (/usr/bin/touch) /P ("
                + markerPath() + ") >> >>");
        } },
    { "pdfThatSendsAForm", End::Ends,
        [] { return withAction("<< /S /SubmitForm /F (http://127.0.0.1:9/) >>"); } },
    { "pdfThatReadsAnotherFile", End::Ends,
        [] {
            return withImage("/Width 10 /Height 10 /BitsPerComponent 8 /ColorSpace /DeviceGray /F "
                             "(/etc/passwd)",
                "");
        } },
    { "pdfWithATrueTypeFontThatIsNone", End::Ends,
        [] {
            return withFont("TrueType", "FontFile2", std::string("\0\1\0\0\xff\xff", 6) + "x");
        } },
    { "pdfWithAType1FontThatIsNone", End::Ends,
        [] {
            return withFont("Type1", "FontFile",
                "%!PS-AdobeFont-1.0\n/Subrs 2147483647 array\neexec " + std::string(500, 'f'));
        } },
    { "pdfWithACompactFontThatIsNone", End::Ends,
        [] {
            return withFont("Type1", "FontFile3",
                std::string("\1\0\4\4\xff\xff\4", 7) + std::string(300, '\xff'),
                "/Subtype /Type1C");
        } },
    { "pdfWithAFontThatUnpacksWithoutEnd", End::Ends,
        [] {
            return withFont("TrueType", "FontFile2", packedZeros(64 << 20), "/Filter /FlateDecode");
        } },
    { "pdfPackedAHundredTimes", End::Ends,
        [] {
            std::string filters;
            for (int i = 0; i < 100; ++i)
                filters += "/FlateDecode ";
            return onePage("/Resources << /XObject << /I 5 0 R >> >>", "/I Do",
                { stream(
                    "/Type /XObject /Subtype /Form /BBox [0 0 200 100] /Filter [" + filters + ']',
                    packedZeros(1 << 20)) });
        } },
    { "pdfWhosePictureShowsItself", End::Ends,
        [] {
            return onePage("/Resources << /XObject << /I 5 0 R >> >>", "/I Do",
                { stream("/Type /XObject /Subtype /Form /BBox [0 0 200 100] /Resources << /XObject "
                         "<< /I 5 0 R /J 5 0 R >> >>",
                    "/I Do /J Do /I Do /J Do") });
        } },
    { "pdfWithAPictureOfAHundredThousandSquared", End::Ends,
        [] {
            return withImage("/Width 100000 /Height 100000 /BitsPerComponent 8 /ColorSpace "
                             "/DeviceRGB /Filter /FlateDecode",
                packedZeros(1 << 20));
        } },
    { "pdfWithAWaveletPictureThatIsNone", End::Ends,
        [] {
            return withImage("/Width 100 /Height 100 /Filter /JPXDecode",
                std::string("\xff\x4f\xff\x51\0\x29\0\0\xff\xff\xff\xff\xff\xff\xff\xff", 16)
                    + std::string(200, '\xff'));
        } },
    { "pdfWithABilevelPictureThatIsNone", End::Ends,
        [] {
            return withImage("/Width 100 /Height 100 /BitsPerComponent 1 /ColorSpace /DeviceGray "
                             "/Filter /JBIG2Decode",
                std::string("\0\0\0\0\x30\0\1\0\0\0\x13\xff\xff\xff\xff\xff\xff\xff\xff", 19)
                    + std::string(100, '\xff'));
        } },
    { "pdfWhosePageHasNoSize", End::Ends,
        [] { return onePage("", shownText, {}, "", "0 0 0 0"); } },
    { "pdfWhosePageIsAsLargeAsACountry", End::Ends,
        [] { return onePage("", shownText, {}, "", "0 0 1e30 1e30"); } },
    { "pdfWhosePageHasALimitlessSide", End::Ends,
        [] { return onePage("", shownText, {}, "", "-1e38 0 1e38 1"); } },
    { "pdfWhoseTableRefersToItself", End::Ends,
        [] {
            return "%PDF-1.7\nxref\n0 1\n0000000000 65535 f \ntrailer\n<< /Size 1 /Prev 9 /Root 1 "
                   "0 "
                   "R >>\nstartxref\n9\n%%EOF\n"
                + std::string();
        } },
    { "pdfWhoseObjectsRefersToThemselves", End::Ends,
        [] {
            return pdf({ "1 0 R", "2 0 R" });
        } },
    { "pdfNestedWithoutEnd", End::Ends,
        [] { return onePage("/X " + std::string(500'000, '['), shownText); } },
    { "pdfThatSavesItsStateWithoutEnd", End::Ends,
        [] {
            std::string content;
            for (int i = 0; i < 500'000; ++i)
                content += "q ";
            return onePage("", content + shownText);
        } },
    { "pdfThatIsOnlyItsFirstLine", End::Refused, [] { return std::string("%PDF-1.7\n"); } },
};

class HostileDocuments : public OcrFixture, public testing::WithParamInterface<HostileDocument> {
protected:
    HostileDocuments()
        : OcrFixture([](Config &config) { config.ocrPageTime = 2000; })
    {
        begin();
    }
};

} // namespace

TEST_P(HostileDocuments, DoNoHarm)
{
    const auto start = std::chrono::steady_clock::now();
    const Answer answer = anna.upload(submission(), GetParam().bytes());
    if (GetParam().end == End::Refused) {
        EXPECT_EQ(answer.status(), 680) << answer.json();
    }
    if (answer.status() == 1) {
        const std::string state = follow(anna, answer.text("JobID")).state;
        EXPECT_TRUE(state == "finished" || state == "failed") << state;
    } else {
        EXPECT_EQ(answer.status(), 680) << answer.json();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(40));
    EXPECT_FALSE(std::filesystem::exists(markerPath()));
    const std::string temporary = harness.folder() + "/tmp";
    EXPECT_TRUE(waitFor([&temporary] { return std::filesystem::is_empty(temporary); }));
    EXPECT_EQ(anna.ask(Message("languages")).status(), 1) << "the server goes on";
}

INSTANTIATE_TEST_SUITE_P(Files, HostileDocuments, testing::ValuesIn(hostileDocuments),
    [](const auto &info) { return std::string(info.param.name); });
