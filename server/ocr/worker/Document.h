#pragma once

#include <memory>
#include <string>

struct Pix;

namespace kvx::ocr {

struct PixDeleter {
    void operator()(Pix *pix) const;
};
using PixPtr = std::unique_ptr<Pix, PixDeleter>;

/// A scanned document in memory: PNG, JPEG, BMP, TIFF (several pages) or PDF, told apart by its
/// first bytes. Nothing is decoded before its size is known to be acceptable: 100 megapixels,
/// 20,000 pixels a side. Everything throws Refusal.
class Document {
public:
    virtual ~Document() = default;
    static std::unique_ptr<Document> open(std::string bytes);

    virtual int pages() const = 0;
    /// Whether the page, counted from 0, would be accepted; without decoding it.
    virtual void check(int page) const = 0;
    /// The page as an image; PDF pages at 300 dpi, or less where that were too large. Where colours
    /// do not matter they are left out.
    virtual PixPtr image(int page, bool colour) const = 0;
};

} // namespace kvx::ocr
