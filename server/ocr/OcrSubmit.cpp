#include "ocr/OcrSubmit.h"
#include "base/Config.h"
#include "base/Text.h"
#include "ocr/OcrProgram.h"
#include "services/Access.h"
#include "services/Call.h"
#include "services/ServiceMemory.h"
#include "store/BlobStore.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <numeric>
#include <system_error>

namespace kvx::server {

namespace {

constexpr std::int64_t largestDocument = 50LL << 20;
constexpr std::size_t mostPages = 50;
constexpr std::size_t mostLanguages = 8;
constexpr int highestPage = 9'999;
constexpr std::size_t longestName = 255;
constexpr int inspectionSeconds = 10;
constexpr int searchablePdf = 2;

struct Wish {
    std::string name;
    std::string languages; ///< joined by "+"
    int exportType = 0;
    std::vector<int> pages; ///< ascending; empty: all
};

bool isLanguage(const std::string &text)
{
    const auto fits = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
            || c == '_' || c == '-';
    };
    return !text.empty() && text.size() <= 32 && std::all_of(text.begin(), text.end(), fits);
}

std::string readLanguages(const Request &request)
{
    std::string joined;
    std::vector<std::string> languages = request.texts("Languages", mostLanguages);
    if (languages.empty())
        languages.emplace_back("eng");
    for (const std::string &language : languages) {
        if (!isLanguage(language))
            throw BadRequest("\"Languages\" holds what is no language");
        joined += (joined.empty() ? "" : "+") + language;
    }
    return joined;
}

std::vector<int> readPages(const Request &request)
{
    const Json *array = request.find("PageIndexes");
    if (!array || !array->IsArray())
        throw BadRequest("\"PageIndexes\" must be an array");
    std::vector<int> pages;
    for (const Json &page : array->GetArray()) {
        if (!page.IsInt() || page.GetInt() < 0 || page.GetInt() > highestPage)
            throw BadRequest(
                "\"PageIndexes\" must hold whole numbers from 0 to " + std::to_string(highestPage));
        pages.push_back(page.GetInt());
    }
    std::sort(pages.begin(), pages.end());
    pages.erase(std::unique(pages.begin(), pages.end()), pages.end());
    if (pages.size() > mostPages)
        throw BadRequest("\"PageIndexes\" holds more than " + std::to_string(mostPages) + " pages");
    return pages;
}

/// The name is shown, never used as one.
std::string readName(const Request &request)
{
    const auto name = displayName(request.text("FileName"), longestName);
    if (!name || name->find_first_of("/\\") != std::string::npos)
        throw BadRequest("\"FileName\" must be a file name without folders");
    return *name;
}

Wish readWish(const Request &request)
{
    return { readName(request), readLanguages(request),
        static_cast<int>(request.integer("ExportType", 0, 3)), readPages(request) };
}

std::string pagesText(const std::vector<int> &pages)
{
    std::string text;
    for (const int page : pages)
        text += (text.empty() ? "" : ",") + std::to_string(page);
    return pages.empty() ? "all" : text;
}

std::optional<Reply> refuseSubmit(Call &call)
{
    const Config &config = call.config();
    OcrStore store(call.db());
    if (store.liveJobs(call.caller().userId) >= config.ocrPerUser)
        return Reply::refused(StatusCode::QuotaExceeded,
            { std::to_string(config.ocrPerUser) + " recognition jobs at a time" });
    if (store.liveJobs() >= config.ocrQueue)
        return Reply::refused(StatusCode::Busy);
    if (!hasSpace(config))
        return Reply::refused(StatusCode::StorageFull);
    return std::nullopt;
}

/// The rows, in the transaction that judges once more.
Reply queueJob(Call &call, const Wish &wish, std::vector<int> pages)
{
    if (const auto refusal = refuseSubmit(call))
        return *refusal;
    const ReceivedFile &file = *call.file();
    BlobStore(call.config().data).record(call.db(), file.path, file.sha256, file.size, call.now());
    const auto count = static_cast<std::int64_t>(pages.size());
    if (wish.exportType == searchablePdf)
        pages.push_back(OcrStore::documentPage);
    const OcrStore::Job job { newUuid(), call.caller().userId, file.sha256, wish.name,
        wish.languages, wish.exportType, OcrStore::JobState::Queued, call.now() };
    OcrStore(call.db()).add(job, pages);
    call.memory().ocr.wake();
    return Reply::ok()
        .set("JobID", job.id)
        .set("Pages", count)
        .set("WaitingTime", ocrWaitingTime(call, job));
}

/// Looks into the document; runs beside the database.
Reply::Continuation inspectDocument(
    const Config &config, const Wish &wish, const std::string &path, const std::string &sha256)
{
    for (const std::string &language : splitList(wish.languages, '+')) {
        const auto &offered = config.ocrLanguages;
        const bool isOffered = offered.empty()
            || std::find(offered.begin(), offered.end(), language) != offered.end();
        if (config.ocrWorkers == 0 || !isOffered)
            return Reply::refusing(StatusCode::OcrNoLanguage, language);
    }
    const auto outcome = OcrProgram(config).run(
        { { "inspect", pagesText(wish.pages), wish.languages }, inspectionSeconds, path, {}, {} });
    using End = OcrProgram::Outcome::End;
    if (outcome.end == End::NoLanguage)
        return Reply::refusing(StatusCode::OcrNoLanguage, outcome.reason);
    if (outcome.end != End::Done)
        return Reply::refusing(StatusCode::OcrBadDocument,
            outcome.end == End::Died ? "it is damaged" : outcome.reason);
    std::size_t count = 0;
    std::from_chars(outcome.output.data(), outcome.output.data() + outcome.output.size(), count);
    if (count < 1 || (wish.pages.empty() && count > mostPages))
        return Reply::refusing(StatusCode::OcrBadDocument, "it is damaged");
    std::vector<int> pages = wish.pages;
    if (pages.empty()) {
        pages.resize(count);
        std::iota(pages.begin(), pages.end(), 0);
    }
    try {
        BlobStore(config.data).place(path, sha256);
    } catch (const std::system_error &error) {
        if (error.code().value() != ENOSPC && error.code().value() != EDQUOT)
            throw;
        return Reply::refusing(StatusCode::StorageFull);
    }
    return [wish, pages](Call &call) { return queueJob(call, wish, pages); };
}

} // namespace

std::int64_t ocrWaitingTime(Call &call, const OcrStore::Job &job)
{
    if (job.state != OcrStore::JobState::Queued)
        return 0;
    const auto pages = static_cast<double>(OcrStore(call.db()).pagesBefore(job));
    const int workers = std::max(1, call.config().ocrWorkers);
    return std::lround(std::ceil(pages * call.memory().ocr.secondsAPage() / workers));
}

Reply beforeOcrSubmit(Call &call)
{
    readWish(call.request());
    const auto refusal = refuseSubmit(call);
    return refusal ? *refusal : Reply::ok();
}

Reply submitOcr(Call &call)
{
    const Wish wish = readWish(call.request());
    if (const auto refusal = refuseSubmit(call))
        return *refusal;
    if (call.file()->size > largestDocument)
        return Reply::refused(
            StatusCode::TooLarge, { std::to_string(largestDocument >> 20) + " MiB" });
    const ReceivedFile &file = *call.file();
    return Reply::after(
        [&config = call.config(), wish, path = file.path, sha256 = file.sha256] {
            return inspectDocument(config, wish, path, sha256);
        },
        Reply::Pool::Documents);
}

} // namespace kvx::server
