#include "ocr/worker/PdfDocument.h"
#include "ocr/worker/Refusal.h"

#include <algorithm>
#include <cmath>
#include <leptonica/allheaders.h>
#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-image.h>
#include <poppler-page-renderer.h>
#include <poppler-page.h>

namespace kvx::ocr {

namespace {

constexpr double wantedDpi = 300;
constexpr double lowestDpi = 70;

PixPtr toPix(const poppler::image &image, bool colour)
{
    PixPtr pix(pixCreate(image.width(), image.height(), colour ? 32 : 8));
    if (!pix)
        throw Refusal("it is too large");
    for (int y = 0; y < image.height(); ++y) {
        const auto *from = reinterpret_cast<const unsigned char *>(image.const_data())
            + std::int64_t { y } * image.bytes_per_row();
        l_uint32 *to = pixGetData(pix.get()) + std::int64_t { y } * pixGetWpl(pix.get());
        for (int x = 0; x < image.width(); ++x) {
            if (colour)
                composeRGBPixel(from[3 * x], from[3 * x + 1], from[3 * x + 2], to + x);
            else
                SET_DATA_BYTE(to, x, from[x]);
        }
    }
    return pix;
}

class PdfDocument : public Document {
public:
    explicit PdfDocument(std::string bytes)
        : m_bytes(std::move(bytes))
    {
        poppler::set_debug_error_function([](const std::string &, void *) {}, nullptr);
        m_document.reset(poppler::document::load_from_raw_data(
            m_bytes.data(), static_cast<int>(m_bytes.size())));
        if (!m_document)
            throw Refusal("it is damaged");
        if (m_document->is_locked())
            throw Refusal("it is protected by a password");
        if (m_document->pages() < 1)
            throw Refusal("it has no pages");
    }

    int pages() const override { return std::min(m_document->pages(), mostPages + 1); }

    void check(int page) const override { dpiOf(*pageAt(page)); }

    PixPtr image(int number, bool colour) const override
    {
        const auto page = pageAt(number);
        const double dpi = dpiOf(*page);
        poppler::page_renderer renderer;
        renderer.set_render_hints(
            poppler::page_renderer::antialiasing | poppler::page_renderer::text_antialiasing);
        renderer.set_image_format(
            colour ? poppler::image::format_rgb24 : poppler::image::format_gray8);
        const poppler::image image = renderer.render_page(page.get(), dpi, dpi);
        if (!image.is_valid())
            throw Refusal("it cannot be drawn");
        PixPtr pix = toPix(image, colour);
        const auto resolution = static_cast<l_int32>(std::lround(dpi));
        pixSetResolution(pix.get(), resolution, resolution);
        return pix;
    }

private:
    std::unique_ptr<poppler::page> pageAt(int number) const
    {
        std::unique_ptr<poppler::page> page(m_document->create_page(number));
        if (!page)
            throw Refusal("it is damaged");
        return page;
    }

    static double dpiOf(const poppler::page &page)
    {
        const poppler::rectf box = page.page_rect();
        const double width = box.width() / 72;
        const double height = box.height() / 72;
        if (!(width > 0) || !(height > 0) || !std::isfinite(width) || !std::isfinite(height))
            throw Refusal("its page has no size");
        const double bySide = static_cast<double>(longestSide - 1) / std::max(width, height);
        const double byArea = std::sqrt(static_cast<double>(mostPixels) / (width * height)) * 0.999;
        const double dpi = std::min({ wantedDpi, bySide, byArea });
        if (dpi < lowestDpi)
            throw Refusal("its page is too large (" + std::to_string(std::lround(width)) + " x "
                + std::to_string(std::lround(height)) + " inches)");
        return dpi;
    }

    const std::string m_bytes;
    std::unique_ptr<poppler::document> m_document;
};

} // namespace

std::unique_ptr<Document> openPdf(std::string bytes)
{
    return std::make_unique<PdfDocument>(std::move(bytes));
}

} // namespace kvx::ocr
