#include "ocr/OcrServices.h"
#include "base/Config.h"
#include "ocr/OcrEngine.h"
#include "ocr/OcrProgram.h"
#include "ocr/OcrSubmit.h"
#include "services/ServiceMemory.h"
#include "services/StoredBytes.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/OcrStore.h"

namespace kvx::server {

namespace {

constexpr std::int64_t longestWait = 20;
/// Texts of one reply; the client asks again for the rest.
constexpr std::size_t replyBytes = std::size_t { 8 } << 20;
constexpr int searchablePdf = 2;

using JobState = OcrStore::JobState;

bool isOver(const OcrStore::Job &job)
{
    return job.state != JobState::Queued && job.state != JobState::Running;
}

const char *stateWord(JobState state)
{
    switch (state) {
    case JobState::Queued:
        return "queued";
    case JobState::Running:
        return "running";
    case JobState::Finished:
        return "finished";
    case JobState::Failed:
        return "failed";
    case JobState::Cancelled:
        break;
    }
    return "cancelled";
}

/// The caller's job of "JobID"; the same nothing for another user's.
std::optional<OcrStore::Job> ownJob(Call &call)
{
    auto job = OcrStore(call.db()).find(call.request().text("JobID", 64));
    if (!job || job->userId != call.caller().userId)
        return std::nullopt;
    return job;
}

Reply noSuchJob()
{
    return Reply::refused(StatusCode::OcrNoSuchJob);
}

std::string resultJson(const OcrStore::Result &result, const std::string &text)
{
    std::string json = "{\"PageIndex\":" + std::to_string(result.page);
    if (result.ok)
        return json + ",\"Ok\":true,\"Text\":" + jsonText(text) + '}';
    return json + ",\"Ok\":false,\"Code\":" + std::to_string(result.code)
        + ",\"Message\":" + jsonText(result.message) + '}';
}

std::string resultsJson(const Config &config, const std::vector<OcrStore::Result> &results)
{
    std::string json = "[";
    for (const OcrStore::Result &result : results) {
        if (json.size() > replyBytes)
            break;
        json += (json.size() > 1 ? "," : "")
            + resultJson(result, result.ok ? loadBytes(config, result.text) : std::string());
    }
    return json + ']';
}

Reply state(Call &call)
{
    const auto after = call.request().integer("After", 0, OcrStore::documentPage);
    const auto wait = call.request().integer("Wait", 0, longestWait);
    const auto job = ownJob(call);
    if (!job)
        return noSuchJob();
    OcrStore store(call.db());
    const auto results = store.results(job->id, after);
    if (results.empty() && !isOver(*job) && wait > 0 && !call.patienceOver())
        return Reply::held(ocrJobKey(job->id), wait * 1000);
    Reply reply = Reply::ok()
                      .set("State", stateWord(job->state))
                      .set("WaitingTime", ocrWaitingTime(call, *job));
    if (job->state == JobState::Failed) {
        const Reply cause = Reply::refused(StatusCode::OcrBadDocument,
            { store.isDocumentFailed(job->id) ? "its pages could not be put together"
                                              : "none of its pages could be recognised" });
        reply.set("Code", static_cast<int>(cause.status())).set("Message", cause.sentence());
    }
    if (results.empty())
        return reply.setJson("Results", "[]");
    return Reply::after([&config = call.config(), results, reply]() mutable {
        reply.setJson("Results", resultsJson(config, results));
        return [reply](Call &) { return reply; };
    });
}

Reply result(Call &call)
{
    const auto page = call.request().optionalInteger("PageIndex", 0, OcrStore::documentPage - 1);
    const auto job = ownJob(call);
    if (!job)
        return noSuchJob();
    const bool isPdf = job->exportType == searchablePdf;
    if (!page && !isPdf)
        throw BadRequest("\"PageIndex\" is missing");
    const int piece = static_cast<int>(page.value_or(OcrStore::documentPage));
    const auto blobs = OcrStore(call.db()).done(job->id, piece);
    if (!blobs || job->state == JobState::Cancelled)
        return noSuchJob();
    const std::string &blob = page && isPdf ? blobs->pdf : blobs->text;
    return Reply::file(
        { BlobStore(call.config().data).path(blob), BlobStore::size(call.db(), blob), blob });
}

Reply cancel(Call &call)
{
    const auto job = ownJob(call);
    if (!job)
        return noSuchJob();
    if (isOver(*job))
        return Reply::ok();
    OcrStore(call.db()).cancel(job->id, call.now());
    call.memory().ocr.stop(job->id);
    call.wakeHeld(ocrJobKey(job->id));
    return Reply::ok();
}

Reply languages(Call &call)
{
    return Reply::after(
        [&config = call.config()] {
            std::string json;
            for (const std::string &language : OcrProgram(config).languages())
                json += (json.empty() ? "" : ",") + jsonText(language);
            return [json](Call &) { return Reply::ok().setJson("Languages", '[' + json + ']'); };
        },
        Reply::Pool::Documents);
}

} // namespace

const ServiceTable ocrServices = {
    { "submit", submitOcr, NeedsRole | Writes, beforeOcrSubmit },
    { "state", state, NeedsRole },
    { "result", result, NeedsRole },
    { "cancel", cancel, NeedsRole | Writes },
    { "languages", languages, NeedsRole },
};

} // namespace kvx::server
