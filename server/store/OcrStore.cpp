#include "store/OcrStore.h"
#include "store/Db.h"

namespace kvx::server {

namespace {

using I = std::int64_t;
using Text = std::string;
using OptionalText = std::optional<std::string>;

} // namespace

void OcrStore::add(const Job &job, const std::vector<int> &pages)
{
    m_db.run("INSERT INTO ocr_job (id, user_id, blob, name, languages, export, state, tries,"
             " created) VALUES (:id, :user, :blob, :name, :languages, :export, 0, 0, :created)",
        { { "id", job.id }, { "user", job.userId }, { "blob", job.blob }, { "name", job.name },
            { "languages", job.languages }, { "export", job.exportType },
            { "created", job.created } });
    for (const int page : pages)
        m_db.run("INSERT INTO ocr_page (job_id, page, state) VALUES (:job, :page, 0)",
            { { "job", job.id }, { "page", page } });
}

std::optional<OcrStore::Job> OcrStore::find(const std::string &id)
{
    const auto row = m_db.row<I, Text, Text, Text, int, int, I>(
        "SELECT user_id, blob, name, languages, export, state, created FROM ocr_job WHERE id = :id",
        { { "id", id } });
    if (!row)
        return std::nullopt;
    const auto &[user, blob, name, languages, exportType, state, created] = *row;
    return Job { id, user, blob, name, languages, exportType, static_cast<JobState>(state),
        created };
}

std::int64_t OcrStore::liveJobs()
{
    return m_db.value<I>("SELECT COUNT(*) FROM ocr_job WHERE state IN (0, 1)").value_or(0);
}

std::int64_t OcrStore::liveJobs(std::int64_t userId)
{
    return m_db
        .value<I>("SELECT COUNT(*) FROM ocr_job WHERE user_id = :user AND state IN (0, 1)",
            { { "user", userId } })
        .value_or(0);
}

std::int64_t OcrStore::pagesBefore(const Job &job)
{
    return m_db
        .value<I>("SELECT COUNT(*) FROM ocr_page JOIN ocr_job ON ocr_job.id = ocr_page.job_id"
                  " WHERE ocr_job.state IN (0, 1) AND ocr_page.state IN (0, 1)"
                  " AND (created < :created OR (created = :created AND id < :id))",
            { { "created", job.created }, { "id", job.id } })
        .value_or(0);
}

std::vector<OcrStore::Result> OcrStore::results(const std::string &jobId, std::int64_t after)
{
    std::vector<Result> found;
    m_db.each<int, int, OptionalText, int, Text>(
        "SELECT page, state, text_blob, code, message FROM ocr_page WHERE job_id = :job"
        " AND seq > :after AND page < :document ORDER BY seq",
        { { "job", jobId }, { "after", after }, { "document", documentPage } },
        [&found](int page, int state, const OptionalText &blob, int code, Text message) {
            const bool ok = state == static_cast<int>(PageState::Done);
            found.push_back({ page, ok, blob.value_or(""), code, std::move(message) });
        });
    return found;
}

bool OcrStore::isDocumentFailed(const std::string &jobId)
{
    return m_db
        .value<I>("SELECT 1 FROM ocr_page WHERE job_id = :job AND page = :document AND state = 3"
                  " AND EXISTS (SELECT 1 FROM ocr_page p WHERE p.job_id = :job AND p.state = 2)",
            { { "job", jobId }, { "document", documentPage } })
        .has_value();
}

std::optional<OcrStore::Blobs> OcrStore::done(const std::string &jobId, int page)
{
    const auto row = m_db.row<OptionalText, OptionalText>(
        "SELECT text_blob, pdf_blob FROM ocr_page WHERE job_id = :job AND page = :page"
        " AND state = 2",
        { { "job", jobId }, { "page", page } });
    if (!row)
        return std::nullopt;
    return Blobs { std::get<0>(*row).value_or(""), std::get<1>(*row).value_or("") };
}

std::vector<std::string> OcrStore::pageDocuments(const std::string &jobId)
{
    std::vector<std::string> blobs;
    m_db.each<Text>("SELECT pdf_blob FROM ocr_page WHERE job_id = :job AND page < :document"
                    " AND state = 2 AND pdf_blob IS NOT NULL ORDER BY page",
        { { "job", jobId }, { "document", documentPage } },
        [&blobs](Text blob) { blobs.push_back(std::move(blob)); });
    return blobs;
}

std::vector<OcrStore::Candidate> OcrStore::candidates()
{
    std::vector<Candidate> found;
    m_db.each<Text, I, int, int>(
        "SELECT ocr_job.id, user_id, MIN(page),"
        " (SELECT COUNT(*) FROM ocr_page p JOIN ocr_job j ON j.id = p.job_id"
        "  WHERE j.user_id = ocr_job.user_id AND j.state = 1 AND p.state = 1)"
        " FROM ocr_job JOIN ocr_page ON ocr_page.job_id = ocr_job.id"
        " WHERE ocr_job.state IN (0, 1) AND ocr_page.state = 0"
        " AND (page < :document OR NOT EXISTS (SELECT 1 FROM ocr_page q"
        "  WHERE q.job_id = ocr_job.id AND q.page < :document AND q.state IN (0, 1)))"
        " GROUP BY ocr_job.id, user_id, created ORDER BY created, ocr_job.id",
        { { "document", documentPage } }, [&found](Text job, I user, int page, int running) {
            found.push_back({ std::move(job), user, page, running });
        });
    return found;
}

void OcrStore::start(const std::string &jobId, int page)
{
    m_db.run("UPDATE ocr_page SET state = 1 WHERE job_id = :job AND page = :page",
        { { "job", jobId }, { "page", page } });
    m_db.run("UPDATE ocr_job SET state = 1 WHERE id = :job", { { "job", jobId } });
}

void OcrStore::end(const std::string &jobId, int page, const Result &result,
    const std::optional<std::string> &pdf, Time now)
{
    const auto text = result.text.empty() ? OptionalText() : OptionalText(result.text);
    const auto state = result.ok ? PageState::Done : PageState::Failed;
    const I changed = m_db.run("UPDATE ocr_page SET state = :state, text_blob = :text,"
                               " pdf_blob = :pdf, code = :code, message = :message,"
                               " seq = (SELECT MAX(seq) + 1 FROM ocr_page WHERE job_id = :job)"
                               " WHERE job_id = :job AND page = :page AND state = 1",
        { { "state", state }, { "text", text }, { "pdf", pdf }, { "code", result.code },
            { "message", result.message }, { "job", jobId }, { "page", page } });
    if (changed > 0)
        endJobIfDone(jobId, now);
}

/// A document is there or not; other jobs were worth something when one page was.
void OcrStore::endJobIfDone(const std::string &jobId, Time now)
{
    const auto left
        = m_db.value<I>("SELECT COUNT(*) FROM ocr_page WHERE job_id = :job AND state IN (0, 1)",
            { { "job", jobId } });
    if (left.value_or(0) > 0)
        return;
    const auto last = m_db.value<int>("SELECT state FROM ocr_page WHERE job_id = :job"
                                      " ORDER BY CASE WHEN page = :document THEN -1 ELSE state END",
        { { "job", jobId }, { "document", documentPage } });
    const bool good = last == static_cast<int>(PageState::Done);
    m_db.run("UPDATE ocr_job SET state = :state, ended = :now WHERE id = :job",
        { { "state", good ? JobState::Finished : JobState::Failed }, { "now", now },
            { "job", jobId } });
}

void OcrStore::putBack(const std::string &jobId, int page)
{
    m_db.run("UPDATE ocr_page SET state = 0 WHERE job_id = :job AND page = :page AND state = 1",
        { { "job", jobId }, { "page", page } });
}

void OcrStore::cancel(const std::string &jobId, Time now)
{
    m_db.run("UPDATE ocr_page SET state = 4 WHERE job_id = :job AND state IN (0, 1)",
        { { "job", jobId } });
    m_db.run("UPDATE ocr_job SET state = 4, ended = :now WHERE id = :job AND state IN (0, 1)",
        { { "now", now }, { "job", jobId } });
}

std::vector<OcrStore::Interrupted> OcrStore::interrupted()
{
    std::vector<Interrupted> found;
    m_db.each<Text, int, int>("SELECT job_id, page, tries FROM ocr_page"
                              " JOIN ocr_job ON ocr_job.id = job_id WHERE ocr_page.state = 1",
        {}, [&found](Text job, int page, int tries) {
            found.push_back({ std::move(job), page, tries == 0 });
        });
    return found;
}

void OcrStore::countTry(const std::string &jobId)
{
    m_db.run("UPDATE ocr_job SET tries = tries + 1 WHERE id = :job", { { "job", jobId } });
}

void OcrStore::dropEndedBefore(Time time)
{
    m_db.run("DELETE FROM ocr_page WHERE job_id IN"
             " (SELECT id FROM ocr_job WHERE state > 1 AND ended < :time)",
        { { "time", time } });
    m_db.run("DELETE FROM ocr_job WHERE state > 1 AND ended < :time", { { "time", time } });
}

} // namespace kvx::server
