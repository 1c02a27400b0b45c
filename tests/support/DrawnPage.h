#pragma once

#include <string>
#include <vector>

namespace kvx::test {

/// A page that a test draws: printed text at known places, so that what is recognised can be
/// compared with what was drawn. Points (1/72 inch) from the upper left corner; characters of
/// Latin-1 in UTF-8.
class DrawnPage {
public:
    explicit DrawnPage(double width = 595, double height = 842);

    /// A line of text whose baseline stands at y.
    DrawnPage &text(double x, double y, const std::string &utf8, double size = 11);
    /// A row of cells, each at its x.
    DrawnPage &row(double y, const std::vector<double> &xs, const std::vector<std::string> &cells,
        double size = 11);

    /// A row of light cells in a dark band across the page, as heads of tables are.
    DrawnPage &darkRow(double y, const std::vector<double> &xs,
        const std::vector<std::string> &cells, double size = 11);
    /// A rule as tables have them.
    DrawnPage &rule(double x1, double y1, double x2, double y2, double thickness = 0.7);

    double width() const { return m_width; }
    double height() const { return m_height; }
    const std::string &content() const { return m_content; } ///< PDF drawing operations
    const std::string &expected() const { return m_expected; } ///< the lines in drawing order

private:
    double m_width;
    double m_height;
    std::string m_content;
    std::string m_expected;
};

/// A PDF document with these pages.
std::string pdfOf(const std::vector<DrawnPage> &pages);

/// The page as a picture: "png", "jpg", "tif" or "bmp". `turns`: quarter turns clockwise.
std::string pictureOf(
    const DrawnPage &page, const std::string &format, double dpi = 300, int turns = 0);
/// Several pages in one TIFF file.
std::string tiffOf(const std::vector<DrawnPage> &pages, double dpi = 300);

/// The text of a PDF's page as a reader would select it.
std::string pdfText(const std::string &pdf, int page);
int pdfPages(const std::string &pdf);

/// How much of a PDF's page is dark, from 0 to 1.
double inkOf(const std::string &pdf, int page);

/// A PDF whose first page takes very long to recognise; the given pages follow.
std::string noisePdf(const std::vector<DrawnPage> &pages = {});
/// A small PDF whose page unpacks to a quarter of a gibibyte.
std::string bombPdf();

/// The share of the expected characters that came back, white space aside: 1 minus the edit
/// distance over the length.
double recognisedShare(const std::string &expected, const std::string &actual);

/// Bills of quantities as offices print them.
extern const std::vector<double> billColumns;
extern const std::vector<std::vector<std::string>> billRows;
DrawnPage billPage(); ///< heading, column heads and billRows
/// A bill without prices: whole quantities, and units at the right edge.
extern const std::vector<double> scheduleColumns;
extern const std::vector<std::vector<std::string>> scheduleRows;
DrawnPage schedulePage(const std::vector<double> &columns = scheduleColumns);
DrawnPage ruledSchedulePage(); ///< the same in a grid of rules
DrawnPage darkHeadedPage(); ///< the same with its head in a dark band
DrawnPage germanPage();
DrawnPage smallPage(const std::string &text = "Concrete C25/30, 12.50 m3"); ///< quick to recognise

} // namespace kvx::test
