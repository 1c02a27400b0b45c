#include "ocr/worker/Recognition.h"
#include "ocr/worker/Pdf.h"
#include "ocr/worker/PlainPage.h"
#include "ocr/worker/TableText.h"

#include <algorithm>
#include <cstdio>
#include <leptonica/allheaders.h>
#include <memory>
#include <stdexcept>
#include <sys/mman.h>
#include <tesseract/baseapi.h>
#include <tesseract/renderer.h>
#include <tesseract/resultiterator.h>
#include <unistd.h>

namespace kvx::ocr {

namespace {

using tesseract::TessBaseAPI;

/// Below this share of certainty a page may be lying on its side.
constexpr int doubtful = 60;
constexpr int assumedDpi = 300;

std::string taken(char *text)
{
    const std::unique_ptr<char[]> owned(text);
    return text ? text : "";
}

void begin(TessBaseAPI &api, const std::string &languages)
{
    if (api.Init(nullptr, languages.c_str(), tesseract::OEM_LSTM_ONLY) != 0)
        throw std::runtime_error("the language data cannot be read");
}

/// As one block of text, so that rows come whole: a search for columns takes bills apart and drops
/// narrow cells. Nothing looks for the rules of a table then, and they would join its rows.
void read(TessBaseAPI &api, Pix *page)
{
    const PixPtr plain = plainPage(page);
    api.SetPageSegMode(tesseract::PSM_SINGLE_BLOCK);
    api.SetImage(plain.get());
    if (pixGetXRes(page) < 70)
        api.SetSourceResolution(assumedDpi);
    if (api.Recognize(nullptr) != 0)
        throw std::runtime_error("recognition gave up");
}

/// How many quarter turns clockwise set the page upright, as far as can be seen.
int turnsToUpright(Pix *page)
{
    int degrees = 0;
    float sure = 0;
    const char *script = nullptr;
    float scriptSure = 0;
    TessBaseAPI orientation;
    if (orientation.Init(nullptr, "osd") != 0)
        return 0;
    orientation.SetPageSegMode(tesseract::PSM_OSD_ONLY);
    orientation.SetImage(page);
    if (!orientation.DetectOrientationScript(&degrees, &sure, &script, &scriptSure))
        return 0;
    return (360 - degrees) / 90 % 4;
}

/// Where hardly anything is certain, the page may be turned. The page as it was read.
PixPtr readWell(TessBaseAPI &api, Pix *page)
{
    read(api, page);
    const int certainty = api.MeanTextConf();
    const int turns = certainty < doubtful ? turnsToUpright(page) : 0;
    if (turns == 0)
        return PixPtr(pixClone(page));
    PixPtr turned(pixRotateOrth(page, turns));
    if (!turned)
        return PixPtr(pixClone(page));
    read(api, turned.get());
    if (api.MeanTextConf() > certainty)
        return turned;
    read(api, page);
    return PixPtr(pixClone(page));
}

std::vector<Word> wordsOf(TessBaseAPI &api)
{
    std::vector<Word> words;
    const std::unique_ptr<tesseract::ResultIterator> place(api.GetIterator());
    if (!place)
        return words;
    do {
        Word word;
        word.text = taken(place->GetUTF8Text(tesseract::RIL_WORD));
        const bool placed = place->BoundingBox(
            tesseract::RIL_WORD, &word.left, &word.top, &word.right, &word.bottom);
        if (placed && word.text.find_first_not_of(" |\t\n") != std::string::npos)
            words.push_back(std::move(word));
    } while (place->Next(tesseract::RIL_WORD));
    return words;
}

std::string hOcr(TessBaseAPI &api, int pageIndex)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.0 Transitional//EN\" "
           "\"http://www.w3.org/TR/xhtml1/DTD/xhtml1-transitional.dtd\">\n"
           "<html xmlns=\"http://www.w3.org/1999/xhtml\">\n<head>\n<title></title>\n"
           "<meta http-equiv=\"Content-Type\" content=\"text/html;charset=utf-8\"/>\n"
           "<meta name=\"ocr-system\" content=\"tesseract "
        + std::string(TessBaseAPI::Version())
        + "\"/>\n<meta name=\"ocr-capabilities\" content=\"ocr_page ocr_carea ocr_par ocr_line "
          "ocrx_word\"/>\n</head>\n<body>\n"
        + taken(api.GetHOCRText(pageIndex)) + "</body>\n</html>\n";
}

std::string bytesOf(int file)
{
    std::string bytes(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
    if (pread(file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("the document cannot be read again");
    return bytes;
}

/// The library writes to a named file or to standard output only, so that stands for a file in
/// memory meanwhile.
std::string invisibleText(TessBaseAPI &api)
{
    const int output = dup(STDOUT_FILENO);
    const int memory = memfd_create("page", MFD_CLOEXEC);
    if (output < 0 || memory < 0 || dup2(memory, STDOUT_FILENO) < 0)
        throw std::runtime_error("the document cannot be written");
    bool good = false;
    {
        tesseract::TessPDFRenderer renderer("stdout", api.GetDatapath(), true);
        good = renderer.BeginDocument("") && renderer.AddImage(&api) && renderer.EndDocument();
    }
    std::fflush(stdout);
    dup2(output, STDOUT_FILENO);
    close(output);
    const std::string bytes = bytesOf(memory);
    close(memory);
    if (!good)
        throw std::runtime_error("the document cannot be written");
    return bytes;
}

} // namespace

std::vector<std::string> installedLanguages()
{
    TessBaseAPI api;
    api.Init(nullptr, "osd", tesseract::OEM_DEFAULT); // finds the folder, whatever comes of it
    std::vector<std::string> languages;
    api.GetAvailableLanguagesAsVector(&languages);
    // Data for finding out how a page lies, and for formulas.
    languages.erase(std::remove_if(languages.begin(), languages.end(),
                        [](const std::string &name) { return name == "osd" || name == "equ"; }),
        languages.end());
    std::sort(languages.begin(), languages.end());
    return languages;
}

PageResult recognise(Pix *page, const std::string &languages, Export exportType, int pageIndex)
{
    TessBaseAPI api;
    begin(api, languages);
    const PixPtr picture = readWell(api, page);
    switch (exportType) {
    case Export::HOcr:
        return { hOcr(api, pageIndex), {} };
    case Export::Table:
        return { tableText(wordsOf(api)), {} };
    case Export::SearchablePdf:
        return { taken(api.GetUTF8Text()), withPicture(invisibleText(api), picture.get()) };
    case Export::Text:
        break;
    }
    return { taken(api.GetUTF8Text()), {} };
}

} // namespace kvx::ocr
