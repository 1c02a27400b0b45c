#include "ocr/worker/Pdf.h"

#include <leptonica/allheaders.h>
#include <memory>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>
#include <stdexcept>

namespace kvx::ocr {

namespace {

constexpr int jpegQuality = 80;

std::string written(QPDF &document)
{
    QPDFWriter writer(document);
    writer.setOutputMemory();
    writer.write();
    const auto buffer = writer.getBufferSharedPointer();
    return { reinterpret_cast<const char *>(buffer->getBuffer()), buffer->getSize() };
}

std::string jpegOf(Pix *picture)
{
    l_uint8 *data = nullptr;
    size_t size = 0;
    if (pixWriteMemJpeg(&data, &size, picture, jpegQuality, 0) != 0)
        throw std::runtime_error("the picture cannot be written");
    std::string bytes(reinterpret_cast<const char *>(data), size);
    lept_free(data);
    return bytes;
}

/// Rows of one bit a pixel, 1 is ink.
std::string bitsOf(Pix *picture)
{
    const int rowBytes = (pixGetWidth(picture) + 7) / 8;
    std::string bits;
    for (int y = 0; y < pixGetHeight(picture); ++y) {
        const l_uint32 *line = pixGetData(picture)
            + static_cast<std::size_t>(y) * static_cast<std::size_t>(pixGetWpl(picture));
        for (int x = 0; x < rowBytes; ++x)
            bits += static_cast<char>(GET_DATA_BYTE(line, x));
    }
    return bits;
}

/// Black and white stays exact; what has shades is compressed as a photograph is.
QPDFObjectHandle imageOf(QPDF &document, Pix *picture)
{
    const auto number = [](int value) { return QPDFObjectHandle::newInteger(value); };
    const auto name = [](const char *value) { return QPDFObjectHandle::newName(value); };
    QPDFObjectHandle image = QPDFObjectHandle::newStream(&document);
    QPDFObjectHandle head = image.getDict();
    head.replaceKey("/Type", name("/XObject"));
    head.replaceKey("/Subtype", name("/Image"));
    head.replaceKey("/Width", number(pixGetWidth(picture)));
    head.replaceKey("/Height", number(pixGetHeight(picture)));
    if (pixGetDepth(picture) == 1) {
        head.replaceKey("/BitsPerComponent", number(1));
        head.replaceKey("/ColorSpace", name("/DeviceGray"));
        head.replaceKey("/Decode", QPDFObjectHandle::newArray({ number(1), number(0) }));
        image.replaceStreamData(
            bitsOf(picture), QPDFObjectHandle::newNull(), QPDFObjectHandle::newNull());
        return image;
    }
    head.replaceKey("/BitsPerComponent", number(8));
    head.replaceKey("/ColorSpace", name(pixGetDepth(picture) == 32 ? "/DeviceRGB" : "/DeviceGray"));
    image.replaceStreamData(jpegOf(picture), name("/DCTDecode"), QPDFObjectHandle::newNull());
    return image;
}

struct PixOwner {
    explicit PixOwner(Pix *pix)
        : pix(pix)
    {
        if (!pix)
            throw std::runtime_error("the picture cannot be converted");
    }
    ~PixOwner() { pixDestroy(&pix); }
    PixOwner(const PixOwner &) = delete;
    PixOwner &operator=(const PixOwner &) = delete;
    Pix *pix;
};

/// Depth 1, 8 or 32, without a table of colours.
Pix *plainPicture(Pix *picture)
{
    if (pixGetDepth(picture) == 1 && !pixGetColormap(picture))
        return pixClone(picture);
    return pixConvertTo8Or32(picture, L_CLONE, 0);
}

} // namespace

std::string withPicture(const std::string &textPdf, Pix *picture)
{
    const PixOwner plain(plainPicture(picture));
    QPDF document;
    document.setSuppressWarnings(true);
    document.processMemoryFile("page", textPdf.data(), textPdf.size());
    QPDFPageObjectHelper page = QPDFPageDocumentHelper(document).getAllPages().at(0);
    const QPDFObjectHandle::Rectangle box = page.getMediaBox().getArrayAsRectangle();
    QPDFObjectHandle resources = page.getObjectHandle().getKey("/Resources");
    QPDFObjectHandle objects = QPDFObjectHandle::newDictionary();
    objects.replaceKey("/Page", document.makeIndirectObject(imageOf(document, plain.pix)));
    resources.replaceKey("/XObject", objects);
    page.addPageContents(QPDFObjectHandle::newStream(&document,
                             "q " + std::to_string(box.urx) + " 0 0 " + std::to_string(box.ury)
                                 + " 0 0 cm /Page Do Q\n"),
        true);
    return written(document);
}

std::string joinPdf(const std::vector<std::string> &documents)
{
    QPDF joined;
    joined.emptyPDF();
    QPDFPageDocumentHelper pages(joined);
    std::vector<std::unique_ptr<QPDF>> sources; // read from until the whole is written
    for (const std::string &document : documents) {
        auto source = std::make_unique<QPDF>();
        source->setSuppressWarnings(true);
        source->processMemoryFile("page", document.data(), document.size());
        for (const QPDFPageObjectHelper &page : QPDFPageDocumentHelper(*source).getAllPages())
            pages.addPage(page, false);
        sources.push_back(std::move(source));
    }
    return written(joined);
}

} // namespace kvx::ocr
