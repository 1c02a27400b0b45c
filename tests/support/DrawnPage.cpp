#include "support/DrawnPage.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <leptonica/allheaders.h>
#include <memory>
#include <numeric>
#include <poppler-document.h>
#include <poppler-image.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>
#include <stdexcept>
#include <utility>
#include <zlib.h>

// The library that finds the fonts to draw with keeps what it knows until the process ends.
extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libfontconfig";
}

namespace kvx::test {

namespace {

std::vector<char32_t> characters(const std::string &utf8)
{
    std::vector<char32_t> result;
    for (std::size_t i = 0; i < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const int length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
        char32_t value = length == 1 ? lead : lead & (0x7fu >> length);
        for (int k = 1; k < length && i + static_cast<std::size_t>(k) < utf8.size(); ++k)
            value = value << 6
                | (static_cast<unsigned char>(utf8[i + static_cast<std::size_t>(k)]) & 0x3fu);
        result.push_back(value);
        i += static_cast<std::size_t>(length);
    }
    return result;
}

std::string pdfString(const std::string &utf8)
{
    std::string text = "(";
    for (const char32_t character : characters(utf8)) {
        if (character > 0xff)
            throw std::invalid_argument("only Latin-1 can be drawn");
        char octal[8];
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(character));
        text += octal;
    }
    return text + ')';
}

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

struct PdfPage {
    double width;
    double height;
    std::string stream; ///< with its dictionary
};

std::string streamOf(const std::string &content)
{
    return "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "endstream";
}

std::string assemble(const std::vector<PdfPage> &pages)
{
    std::vector<std::string> objects = { "<< /Type /Catalog /Pages 2 0 R >>", "",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>" };
    std::string kids;
    for (const PdfPage &page : pages) {
        const std::size_t object = objects.size() + 1;
        kids += std::to_string(object) + " 0 R ";
        objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + number(page.width) + ' '
            + number(page.height) + "] /Resources << /Font << /F1 3 0 R >> >> /Contents "
            + std::to_string(object + 1) + " 0 R >>");
        objects.push_back(page.stream);
    }
    objects[1]
        = "<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages.size()) + " >>";
    std::string pdf = "%PDF-1.4\n";
    std::string table = "0000000000 65535 f \n";
    for (std::size_t i = 0; i < objects.size(); ++i) {
        char entry[32];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", pdf.size());
        table += entry;
        pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::string size = std::to_string(objects.size() + 1);
    const std::size_t start = pdf.size();
    return pdf + "xref\n0 " + size + '\n' + table + "trailer\n<< /Size " + size
        + " /Root 1 0 R >>\nstartxref\n" + std::to_string(start) + "\n%%EOF\n";
}

std::string deflated(const std::string &bytes)
{
    uLongf size = compressBound(bytes.size());
    std::string packed(size, '\0');
    if (compress2(reinterpret_cast<Bytef *>(packed.data()), &size,
            reinterpret_cast<const Bytef *>(bytes.data()), bytes.size(), 1)
        != Z_OK)
        throw std::runtime_error("the bytes cannot be packed");
    packed.resize(size);
    return packed;
}

std::unique_ptr<poppler::document> opened(const std::string &pdf)
{
    return std::unique_ptr<poppler::document>(
        poppler::document::load_from_raw_data(pdf.data(), static_cast<int>(pdf.size())));
}

struct PixDestroyer {
    void operator()(Pix *pix) const { pixDestroy(&pix); }
};
using OwnedPix = std::unique_ptr<Pix, PixDestroyer>;

OwnedPix drawn(const DrawnPage &drawing, double dpi)
{
    const std::string pdf = pdfOf({ drawing });
    const auto document = opened(pdf);
    const std::unique_ptr<poppler::page> page(document->create_page(0));
    poppler::page_renderer renderer;
    renderer.set_render_hints(
        poppler::page_renderer::antialiasing | poppler::page_renderer::text_antialiasing);
    renderer.set_image_format(poppler::image::format_gray8);
    const poppler::image image = renderer.render_page(page.get(), dpi, dpi);
    OwnedPix pix(pixCreate(image.width(), image.height(), 8));
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            pixSetPixel(pix.get(), x, y,
                static_cast<unsigned char>(image.const_data()[y * image.bytes_per_row() + x]));
    }
    const auto resolution = static_cast<l_int32>(std::lround(dpi));
    pixSetResolution(pix.get(), resolution, resolution);
    return pix;
}

std::string bytesOf(l_uint8 *data, size_t size)
{
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    lept_free(data);
    return bytes;
}

std::string withoutSpace(const std::string &text)
{
    std::string result;
    std::copy_if(text.begin(), text.end(), std::back_inserter(result),
        [](char c) { return !std::isspace(static_cast<unsigned char>(c)); });
    return result;
}

} // namespace

DrawnPage::DrawnPage(double width, double height)
    : m_width(width)
    , m_height(height)
{
}

DrawnPage &DrawnPage::text(double x, double y, const std::string &utf8, double size)
{
    m_content += "BT /F1 " + number(size) + " Tf " + number(x) + ' ' + number(m_height - y) + " Td "
        + pdfString(utf8) + " Tj ET\n";
    m_expected += utf8 + '\n';
    return *this;
}

DrawnPage &DrawnPage::row(
    double y, const std::vector<double> &xs, const std::vector<std::string> &cells, double size)
{
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (!cells[i].empty())
            text(xs[i], y, cells[i], size);
    }
    return *this;
}

DrawnPage &DrawnPage::darkRow(
    double y, const std::vector<double> &xs, const std::vector<std::string> &cells, double size)
{
    m_content += "40 " + number(m_height - y - size / 2) + ' ' + number(m_width - 80) + ' '
        + number(2 * size) + " re f 1 g\n";
    row(y, xs, cells, size);
    m_content += "0 g\n";
    return *this;
}

DrawnPage &DrawnPage::rule(double x1, double y1, double x2, double y2, double thickness)
{
    m_content += number(thickness) + " w " + number(x1) + ' ' + number(m_height - y1) + " m "
        + number(x2) + ' ' + number(m_height - y2) + " l S\n";
    return *this;
}

std::string pdfOf(const std::vector<DrawnPage> &pages)
{
    std::vector<PdfPage> parts;
    for (const DrawnPage &page : pages)
        parts.push_back({ page.width(), page.height(), streamOf(page.content()) });
    return assemble(parts);
}

std::string noisePdf(const std::vector<DrawnPage> &pages)
{
    // Small marks that might all be letters.
    std::string marks;
    unsigned state = 1;
    for (int i = 0; i < 60'000; ++i) {
        state = state * 1'103'515'245u + 12'345u;
        marks += number(state >> 8 & 2047) + ' ' + number(state >> 19 & 2047) + " 3 6 re ";
        if (i % 100 == 99)
            marks += "f\n";
    }
    std::vector<PdfPage> parts = { { 2048, 2048, streamOf(marks) } };
    for (const DrawnPage &page : pages)
        parts.push_back({ page.width(), page.height(), streamOf(page.content()) });
    return assemble(parts);
}

std::string bombPdf()
{
    // Blanks, packed twice: each time about one byte for a thousand.
    const std::string once = deflated(std::string(1u << 28, ' '));
    const std::string twice = deflated(once);
    return assemble({ { 200, 200,
        "<< /Length " + std::to_string(twice.size())
            + " /Filter [/FlateDecode /FlateDecode] >>\nstream\n" + twice + "\nendstream" } });
}

double inkOf(const std::string &pdf, int number)
{
    const auto document = opened(pdf);
    const std::unique_ptr<poppler::page> page(document->create_page(number));
    poppler::page_renderer renderer;
    renderer.set_image_format(poppler::image::format_gray8);
    const poppler::image image = renderer.render_page(page.get(), 50, 50);
    std::int64_t dark = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            dark += static_cast<unsigned char>(image.const_data()[y * image.bytes_per_row() + x])
                < 128;
    }
    return static_cast<double>(dark) / image.width() / image.height();
}

std::string pictureOf(const DrawnPage &page, const std::string &format, double dpi, int turns)
{
    OwnedPix pix = drawn(page, dpi);
    if (turns != 0)
        pix.reset(pixRotateOrth(pix.get(), turns));
    l_uint8 *data = nullptr;
    size_t size = 0;
    const bool failed = format == "png" ? pixWriteMemPng(&data, &size, pix.get(), 0)
        : format == "jpg"               ? pixWriteMemJpeg(&data, &size, pix.get(), 90, 0)
        : format == "tif"               ? pixWriteMemTiff(&data, &size, pix.get(), IFF_TIFF_ZIP)
                                        : pixWriteMemBmp(&data, &size, pix.get());
    if (failed)
        throw std::runtime_error("the picture cannot be made");
    return bytesOf(data, size);
}

std::string tiffOf(const std::vector<DrawnPage> &pages, double dpi)
{
    Pixa *pictures = pixaCreate(static_cast<l_int32>(pages.size()));
    for (const DrawnPage &page : pages)
        pixaAddPix(pictures, drawn(page, dpi).get(), L_COPY);
    l_uint8 *data = nullptr;
    size_t size = 0;
    const bool failed = pixaWriteMemMultipageTiff(&data, &size, pictures) != 0;
    pixaDestroy(&pictures);
    if (failed)
        throw std::runtime_error("the picture cannot be made");
    return bytesOf(data, size);
}

std::string pdfText(const std::string &pdf, int number)
{
    const auto document = opened(pdf);
    if (!document)
        return {};
    const std::unique_ptr<poppler::page> page(document->create_page(number));
    if (!page)
        return {};
    const poppler::byte_array text = page->text().to_utf8();
    return { text.begin(), text.end() };
}

int pdfPages(const std::string &pdf)
{
    const auto document = opened(pdf);
    return document ? document->pages() : 0;
}

double recognisedShare(const std::string &expected, const std::string &actual)
{
    const auto a = characters(withoutSpace(expected));
    const auto b = characters(withoutSpace(actual));
    std::vector<std::size_t> distance(b.size() + 1);
    std::iota(distance.begin(), distance.end(), std::size_t { 0 });
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(distance[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = distance[j];
            distance[j] = std::min({ distance[j] + 1, distance[j - 1] + 1, changed });
        }
    }
    return a.empty() ? 1
                     : 1 - static_cast<double>(distance[b.size()]) / static_cast<double>(a.size());
}

const std::vector<double> billColumns = { 50, 120, 330, 370, 430, 490 };
const std::vector<std::vector<std::string>> billRows = {
    { "Item", "Description", "Unit", "Quantity", "Rate", "Amount" },
    { "02.01.0010", "Excavate trench, depth to 1.50 m", "m3", "1,240.00", "18.75", "23,250.00" },
    { "02.01.0020", "Backfill with selected material", "m3", "860.50", "9.40", "8,088.70" },
    { "02.01.0030", "Blinding concrete C12/15, 75 mm", "m2", "415.00", "12.30", "5,104.50" },
    { "02.02.0010", "Reinforced concrete C30/37", "m3", "312.25", "184.60", "57,641.35" },
    { "02.02.0020", "Formwork to foundations", "m2", "680.00", "41.95", "28,526.00" },
    { "02.02.0030", "Reinforcement B500B", "kg", "28,400", "1.82", "51,688.00" },
    { "02.03.0010", "Damp proof membrane, two layers", "m2", "540.00", "7.65", "4,131.00" },
    { "02.03.0020", "Drainage pipe DN 150 PVC", "m", "126.00", "33.20", "4,183.20" },
};

DrawnPage billPage()
{
    DrawnPage page;
    page.text(50, 70, "Bill of quantities, section 02 Foundations", 14);
    double y = 110;
    for (const auto &row : billRows) {
        page.row(y, billColumns, row, 10);
        y += 22;
    }
    page.text(50, y + 20, "Carried forward to summary", 10);
    return page;
}

const std::vector<double> scheduleColumns = { 50, 120, 430, 520 };
const std::vector<std::vector<std::string>> scheduleRows = {
    { "Item", "Description", "Quantity", "Unit" },
    { "13.02.0130", "Flagpole of aluminium, height 8 m", "3", "pcs" },
    { "13.02.0140", "Foundation for flagpole, concrete", "1", "m3" },
    { "13.02.0150", "Bicycle stand, galvanised steel", "24", "pcs" },
    { "13.02.0160", "Bench of oak, length 2.40 m", "6", "pcs" },
    { "13.02.0170", "Safety surface below climbing frame", "86", "m2" },
    { "13.02.0180", "Hornbeam hedge, planted", "112", "m" },
};

namespace {

constexpr double scheduleTop = 125;
constexpr double scheduleStep = 24;

DrawnPage scheduleWith(const std::vector<double> &columns, bool darkHead)
{
    DrawnPage page;
    page.text(60, 80, "School Nordring, addendum 1 to 13.02", 14);
    double y = scheduleTop;
    for (const auto &row : scheduleRows) {
        if (darkHead && y == scheduleTop)
            page.darkRow(y, columns, row);
        else
            page.row(y, columns, row);
        y += scheduleStep;
    }
    return page;
}

} // namespace

DrawnPage schedulePage(const std::vector<double> &columns)
{
    return scheduleWith(columns, false);
}

DrawnPage darkHeadedPage()
{
    return scheduleWith(scheduleColumns, true);
}

DrawnPage ruledSchedulePage()
{
    DrawnPage page = schedulePage();
    const double left = scheduleColumns.front() - 5;
    const double right = 550;
    const double top = scheduleTop - 16;
    const double bottom = top + scheduleStep * static_cast<double>(scheduleRows.size());
    for (std::size_t i = 0; i <= scheduleRows.size(); ++i) {
        const double y = top + scheduleStep * static_cast<double>(i);
        page.rule(left, y, right, y);
    }
    for (const double x : scheduleColumns)
        page.rule(x - 5, top, x - 5, bottom);
    page.rule(right, top, right, bottom);
    return page;
}

DrawnPage germanPage()
{
    DrawnPage page;
    page.text(50, 70, "Leistungsverzeichnis Grundschule Nordring", 14)
        .text(50, 100, "Türen und Fenster gemäß Übersichtsplan einbauen")
        .text(50, 122, "Öffnungen für Lüftungskanäle schließen, Größe bis 0,50 m²")
        .text(50, 144, "Außenwände dämmen und verputzen, Höhe über Gelände 3,20 m")
        .text(50, 166, "Stückpreise ohne Mehrwertsteuer, Währung Euro")
        .text(50, 188, "Rückbau der Gerüste und Räumung der Baustelle");
    return page;
}

DrawnPage smallPage(const std::string &text)
{
    DrawnPage page(300, 80);
    page.text(20, 45, text, 14);
    return page;
}

} // namespace kvx::test
