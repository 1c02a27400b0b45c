#include "ocr/worker/TableText.h"

#include <algorithm>

namespace kvx::ocr {

namespace {

struct Cell {
    std::string text;
    int left;
    int right;
};
using Row = std::vector<Cell>;

int height(const Word &word)
{
    return word.bottom - word.top;
}

int usualHeight(const std::vector<Word> &words)
{
    std::vector<int> heights;
    heights.reserve(words.size());
    for (const Word &word : words)
        heights.push_back(height(word));
    std::nth_element(
        heights.begin(), heights.begin() + static_cast<long>(heights.size() / 2), heights.end());
    return std::max(1, heights[heights.size() / 2]);
}

/// Words whose middles are at most half a letter apart stand in one row.
std::vector<std::vector<Word>> toLines(std::vector<Word> words, int letter)
{
    const auto middle = [](const Word &word) { return (word.top + word.bottom) / 2; };
    std::stable_sort(words.begin(), words.end(),
        [&](const Word &a, const Word &b) { return middle(a) < middle(b); });
    std::vector<std::vector<Word>> lines;
    int last = 0;
    for (Word &word : words) {
        const int here = middle(word);
        if (lines.empty() || here - last > letter / 2)
            lines.emplace_back();
        last = here;
        lines.back().push_back(std::move(word));
    }
    return lines;
}

/// Words of a line as far as the gaps between them are those of a sentence.
Row toCells(std::vector<Word> line, int letter)
{
    std::sort(
        line.begin(), line.end(), [](const Word &a, const Word &b) { return a.left < b.left; });
    Row cells;
    for (const Word &word : line) {
        if (!cells.empty() && word.left - cells.back().right < letter) {
            cells.back().text += ' ' + word.text;
            cells.back().right = std::max(cells.back().right, word.right);
        } else {
            cells.push_back({ word.text, word.left, word.right });
        }
    }
    return cells;
}

/// Where columns begin: after each strip that no cell of a row with several cells touches.
std::vector<int> columnStarts(const std::vector<Row> &rows)
{
    std::vector<Cell> cells;
    for (const Row &row : rows) {
        if (row.size() > 1)
            cells.insert(cells.end(), row.begin(), row.end());
    }
    std::sort(
        cells.begin(), cells.end(), [](const Cell &a, const Cell &b) { return a.left < b.left; });
    std::vector<int> starts;
    int end = 0;
    for (const Cell &cell : cells) {
        if (starts.empty() || cell.left > end)
            starts.push_back(cell.left);
        end = std::max(end, cell.right);
    }
    return starts;
}

std::size_t columnOf(const Cell &cell, const std::vector<int> &starts)
{
    const auto after = std::upper_bound(starts.begin(), starts.end(), cell.left);
    return after == starts.begin() ? 0 : static_cast<std::size_t>(after - starts.begin() - 1);
}

std::string withoutTabs(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, ' ');
    return text;
}

} // namespace

std::string tableText(std::vector<Word> words)
{
    if (words.empty())
        return {};
    const int letter = usualHeight(words);
    std::vector<Row> rows;
    for (auto &line : toLines(std::move(words), letter))
        rows.push_back(toCells(std::move(line), letter));
    const std::vector<int> starts = columnStarts(rows);
    std::string text;
    for (const Row &row : rows) {
        std::size_t column = 0;
        bool first = true;
        for (const Cell &cell : row) {
            const std::size_t wanted = columnOf(cell, starts);
            if (wanted > column)
                text.append(wanted - column, '\t');
            else if (!first)
                text += ' ';
            column = std::max(column, wanted);
            first = false;
            text += withoutTabs(cell.text);
        }
        text += '\n';
    }
    return text;
}

} // namespace kvx::ocr
