#pragma once

#include <string>
#include <vector>

struct Pix;

namespace kvx::ocr {

/// Puts the picture of a page behind the invisible text of a one-page PDF document. Throws
/// std::exception.
std::string withPicture(const std::string &textPdf, Pix *picture);

/// The pages of these PDF documents, in order, as one document. Throws std::exception.
std::string joinPdf(const std::vector<std::string> &documents);

} // namespace kvx::ocr
