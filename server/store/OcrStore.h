#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kvx::server {

class Db;

/// Recognition jobs and their pages. A job whose result is one document has a last piece of work
/// besides its pages, `documentPage`: putting them together.
class OcrStore {
public:
    static constexpr int documentPage = 1'000'000;
    enum class JobState { Queued, Running, Finished, Failed, Cancelled };
    enum class PageState { Queued, Running, Done, Failed, Dropped };

    struct Job {
        std::string id;
        std::int64_t userId = 0;
        std::string blob;
        std::string name; ///< of the document, as the user knows it
        std::string languages; ///< joined by "+"
        int exportType = 0;
        JobState state = JobState::Queued;
        Time created = 0;
    };

    explicit OcrStore(Db &db)
        : m_db(db)
    {
    }

    void add(const Job &job, const std::vector<int> &pages);
    std::optional<Job> find(const std::string &id);
    /// Jobs that are not over: of everybody, of one user.
    std::int64_t liveJobs();
    std::int64_t liveJobs(std::int64_t userId);
    /// Pages of earlier jobs that are still to be done.
    std::int64_t pagesBefore(const Job &job);

    struct Result {
        int page = 0;
        bool ok = false;
        std::string text; ///< blob
        int code = 0;
        std::string message;
    };
    /// Ended pages in order of completion, without the first `after`.
    std::vector<Result> results(const std::string &jobId, std::int64_t after);
    /// There were good pages, but they could not be put together.
    bool isDocumentFailed(const std::string &jobId);
    struct Blobs {
        std::string text;
        std::string pdf;
    };
    /// The blobs of a page that is done.
    std::optional<Blobs> done(const std::string &jobId, int page);
    /// The PDF blobs of the pages, in the document's order.
    std::vector<std::string> pageDocuments(const std::string &jobId);

    /// What could be done next: the first page of each job that is waiting.
    struct Candidate {
        std::string jobId;
        std::int64_t userId = 0;
        int page = 0;
        int runningOfUser = 0;
    };
    std::vector<Candidate> candidates();
    void start(const std::string &jobId, int page);
    /// A piece of work ended; the job with the last one. Nothing when it was cancelled meanwhile.
    void end(const std::string &jobId, int page, const Result &result,
        const std::optional<std::string> &pdf, Time now);
    /// A page in work waits again.
    void putBack(const std::string &jobId, int page);
    void cancel(const std::string &jobId, Time now);

    /// After a crash: what was in work waits again, the second time it fails with that code and
    /// sentence.
    struct Interrupted {
        std::string jobId;
        int page = 0;
        bool again = false; ///< it waits again
    };
    std::vector<Interrupted> interrupted();
    void countTry(const std::string &jobId);

    void dropEndedBefore(Time time);

private:
    void endJobIfDone(const std::string &jobId, Time now);

    Db &m_db;
};

} // namespace kvx::server
