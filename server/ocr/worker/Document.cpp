#include "ocr/worker/Document.h"
#include "ocr/worker/PdfDocument.h"
#include "ocr/worker/Refusal.h"

#include <cstdint>
#include <cstring>
#include <leptonica/allheaders.h>
#include <string_view>

namespace kvx::ocr {

void PixDeleter::operator()(Pix *pix) const
{
    pixDestroy(&pix);
}

void checkSize(std::int64_t width, std::int64_t height)
{
    const std::string size = std::to_string(width) + " x " + std::to_string(height) + " pixels";
    if (width < 1 || height < 1)
        throw Refusal("its size is " + size);
    if (width > longestSide || height > longestSide || width * height > mostPixels)
        throw Refusal("it is too large (" + size + ")");
}

namespace {

bool begins(std::string_view bytes, std::string_view magic)
{
    return bytes.substr(0, magic.size()) == magic;
}

std::int32_t littleEndian(const std::string &bytes, std::size_t offset)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
    return static_cast<std::int32_t>(value);
}

/// One picture, or a TIFF file's several.
class ImageDocument : public Document {
public:
    explicit ImageDocument(std::string bytes)
        : m_bytes(std::move(bytes))
        , m_isTiff(begins(m_bytes, { "II*\0", 4 }) || begins(m_bytes, { "MM\0*", 4 }))
    {
        if (!m_isTiff)
            return;
        while (m_pages <= mostPages && hasTiffPage(m_pages))
            ++m_pages;
        --m_pages;
        if (m_pages < 1)
            throw Refusal("it is damaged");
    }

    int pages() const override { return m_pages; }

    void check(int page) const override
    {
        l_int32 width = 0;
        l_int32 height = 0;
        if (begins(m_bytes, "BM")) {
            if (m_bytes.size() < 26)
                throw Refusal("it is damaged");
            // A negative height means rows from the top.
            checkSize(
                littleEndian(m_bytes, 18), std::abs(std::int64_t { littleEndian(m_bytes, 22) }));
            return;
        }
        const int failed = m_isTiff ? readHeaderMemTiff(data(), m_bytes.size(), page, &width,
                               &height, nullptr, nullptr, nullptr, nullptr, nullptr)
                                    : pixReadHeaderMem(data(), m_bytes.size(), nullptr, &width,
                                        &height, nullptr, nullptr, nullptr);
        if (failed)
            throw Refusal("it is damaged");
        checkSize(width, height);
    }

    PixPtr image(int page, bool) const override
    {
        check(page);
        PixPtr pix(m_isTiff ? pixReadMemTiff(data(), m_bytes.size(), page)
                            : pixReadMem(data(), m_bytes.size()));
        if (!pix)
            throw Refusal("it is damaged");
        checkSize(pixGetWidth(pix.get()), pixGetHeight(pix.get()));
        // Transparent parts count as paper.
        if (pixGetSpp(pix.get()) == 4)
            pix.reset(pixRemoveAlpha(pix.get()));
        return pix;
    }

private:
    const l_uint8 *data() const { return reinterpret_cast<const l_uint8 *>(m_bytes.data()); }

    bool hasTiffPage(int number) const
    {
        l_int32 width = 0;
        l_int32 height = 0;
        return readHeaderMemTiff(data(), m_bytes.size(), number - 1, &width, &height, nullptr,
                   nullptr, nullptr, nullptr, nullptr)
            == 0;
    }

    const std::string m_bytes;
    const bool m_isTiff;
    int m_pages = 1;
};

} // namespace

std::unique_ptr<Document> Document::open(std::string bytes)
{
    setMsgSeverity(L_SEVERITY_NONE);
    if (begins(bytes, "%PDF-"))
        return openPdf(std::move(bytes));
    for (const std::string_view magic :
        { std::string_view("\x89PNG\r\n\x1a\n"), std::string_view("\xff\xd8\xff"),
            std::string_view("II*\0", 4), std::string_view("MM\0*", 4), std::string_view("BM") }) {
        if (begins(bytes, magic))
            return std::make_unique<ImageDocument>(std::move(bytes));
    }
    throw Refusal("it is neither PNG, JPEG, TIFF, BMP nor PDF");
}

} // namespace kvx::ocr
