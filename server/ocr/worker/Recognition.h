#pragma once

#include <string>
#include <vector>

struct Pix;

namespace kvx::ocr {

/// What a page's result is. The numbers are part of the protocol.
enum class Export { Text = 0, HOcr = 1, SearchablePdf = 2, Table = 3 };

/// The languages whose data are installed, sorted.
std::vector<std::string> installedLanguages();

struct PageResult {
    std::string text; ///< UTF-8; of a searchable PDF the plain text
    std::string pdf; ///< a searchable PDF's page
};

/// Recognises a page. `languages` are joined by "+". Throws std::exception.
PageResult recognise(Pix *page, const std::string &languages, Export exportType, int pageIndex);

} // namespace kvx::ocr
