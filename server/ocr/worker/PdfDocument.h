#pragma once

#include "ocr/worker/Document.h"

#include <cstdint>

namespace kvx::ocr {

constexpr std::int64_t longestSide = 20'000;
constexpr std::int64_t mostPixels = 100'000'000;
/// So far a document's pages are counted; a job takes fewer.
constexpr int mostPages = 10'000;

void checkSize(std::int64_t width, std::int64_t height);

/// Throws Refusal.
std::unique_ptr<Document> openPdf(std::string bytes);

} // namespace kvx::ocr
