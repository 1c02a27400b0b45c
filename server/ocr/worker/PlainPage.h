#pragma once

#include "ocr/worker/Document.h"

namespace kvx::ocr {

/// The page as dark letters on light paper, in shades of grey: without the rules of its tables and
/// the lines under its sums, and with dark areas turned light, as the heads of tables are. The page
/// itself where it is so already. Throws std::runtime_error.
PixPtr plainPage(Pix *page);

} // namespace kvx::ocr
