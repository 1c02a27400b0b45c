#include "ocr/worker/Document.h"
#include "ocr/worker/Pdf.h"
#include "ocr/worker/Recognition.h"
#include "ocr/worker/Refusal.h"
#include "ocr/worker/Sandbox.h"

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <new>
#include <sstream>
#include <string_view>
#include <sys/prctl.h>
#include <unistd.h>

// kvx-ocr-worker SECONDS MODE …: one piece of work of the recognition service, for the server only.
//
//   protections              what the sandbox could do here, on standard output
//   languages                installed languages, one a line
//   inspect PAGES            document on standard input; its number of pages. PAGES: "0,4,7" or
//   "all" page INDEX EXPORT LANGS  document on standard input; the text goes to file 3, a PDF to
//   output join FILE…               the PDF files as one
//
// LANGS: "deu+eng". Exit codes: 0 done, 3 the document is refused, 4 a language is not installed
// (both with a word on standard error after "refused: "), else a fault.

namespace {

using namespace kvx::ocr;

constexpr int exitRefused = 3;
constexpr int exitNoLanguage = 4;
constexpr int textFile = 3;
constexpr std::size_t largestDocument = std::size_t { 50 } << 20;
constexpr std::size_t largestJoin = std::size_t { 1 } << 30;
constexpr int mostPagesOfAJob = 50;

int number(const std::string &text)
{
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0)
        throw std::invalid_argument("\"" + text + "\" is no number");
    return value;
}

std::string readAll(int file, std::size_t limit)
{
    std::string bytes;
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t count = read(file, buffer, sizeof buffer);
        if (count < 0)
            throw std::runtime_error("the input cannot be read");
        if (count == 0)
            return bytes;
        bytes.append(buffer, static_cast<std::size_t>(count));
        if (bytes.size() > limit)
            throw Refusal("it is too large");
    }
}

void writeAll(int file, const std::string &bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
        if (count <= 0)
            throw std::runtime_error("the result cannot be written");
        done += static_cast<std::size_t>(count);
    }
}

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

void checkLanguages(const std::string &wanted)
{
    const auto installed = installedLanguages();
    for (const std::string &language : split(wanted, '+')) {
        if (std::find(installed.begin(), installed.end(), language) == installed.end())
            throw NoLanguage(language);
    }
}

void inspect(const std::string &wanted, const std::string &languages)
{
    checkLanguages(languages);
    const auto document = Document::open(readAll(STDIN_FILENO, largestDocument));
    const int pages = document->pages();
    if (wanted == "all") {
        if (pages > mostPagesOfAJob)
            throw Refusal("it has more than " + std::to_string(mostPagesOfAJob)
                + " pages; choose some of them");
        for (int page = 0; page < pages; ++page)
            document->check(page);
    } else {
        for (const std::string &text : split(wanted, ',')) {
            const int page = number(text);
            if (page >= pages)
                throw Refusal("it has no page " + std::to_string(page + 1));
            document->check(page);
        }
    }
    std::cout << pages << std::endl;
}

void recognisePage(int index, int exportType, const std::string &languages)
{
    const auto type = static_cast<Export>(exportType);
    const auto document = Document::open(readAll(STDIN_FILENO, largestDocument));
    const PixPtr image = document->image(index, type == Export::SearchablePdf);
    const PageResult result = recognise(image.get(), languages, type, index);
    writeAll(textFile, result.text);
    writeAll(STDOUT_FILENO, result.pdf);
}

void run(unsigned seconds, const std::vector<std::string> &words)
{
    const std::string &mode = words.at(0);
    std::vector<std::string> documents;
    if (mode == "join") { // opened while files still can be
        std::size_t left = largestJoin;
        for (std::size_t i = 1; i < words.size(); ++i) {
            const int file = open(words[i].c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
            documents.push_back(readAll(file, left));
            left -= documents.back().size();
            close(file);
        }
    }
    const std::string protections = enterSandbox(seconds);
    // A death signal does not survive a change of user.
    prctl(PR_SET_PDEATHSIG, SIGKILL);

    if (mode == "protections")
        std::cout << protections << std::endl;
    else if (mode == "languages")
        for (const std::string &language : installedLanguages())
            std::cout << language << std::endl;
    else if (mode == "inspect")
        inspect(words.at(1), words.at(2));
    else if (mode == "page")
        recognisePage(number(words.at(1)), number(words.at(2)), words.at(3));
    else if (mode == "join")
        writeAll(STDOUT_FILENO, joinPdf(documents));
    else
        throw std::invalid_argument("there is no \"" + mode + '"');
}

/// The process may start no threads, and the library that would reads its limit before main: so
/// once more from the start, should the caller not have set it.
void startWithOneThread(char **argv)
{
    const char *limit = std::getenv("OMP_THREAD_LIMIT");
    if (limit && std::string_view(limit) == "1")
        return;
    if (setenv("OMP_THREAD_LIMIT", "1", 1) == 0)
        execv("/proc/self/exe", argv);
    throw std::runtime_error("OMP_THREAD_LIMIT=1 must be set");
}

} // namespace

int main(int argc, char **argv)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
        startWithOneThread(argv);
        const std::vector<std::string> words(argv + std::min(argc, 2), argv + argc);
        run(static_cast<unsigned>(number(argc > 1 ? argv[1] : "")), words);
        return 0;
    } catch (const Refusal &refusal) {
        std::cerr << "refused: " << refusal.what() << std::endl;
        return exitRefused;
    } catch (const NoLanguage &language) {
        std::cerr << "refused: " << language.what() << std::endl;
        return exitNoLanguage;
    } catch (const std::bad_alloc &) {
        std::cerr << "refused: it needs too much memory" << std::endl;
        return exitRefused;
    } catch (const std::exception &error) {
        std::cerr << "kvx-ocr-worker: " << error.what() << std::endl;
        return 1;
    }
}
