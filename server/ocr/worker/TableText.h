#pragma once

#include <string>
#include <vector>

namespace kvx::ocr {

/// A recognised word and its place on the page, in pixels.
struct Word {
    std::string text;
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
};

/// The words as rows and columns of a sheet: a line a row, a tab between columns, so that the text
/// can be pasted. A column ends where a strip from top to bottom is free in every row that has
/// several cells; what spans columns stands where it begins.
std::string tableText(std::vector<Word> words);

} // namespace kvx::ocr
