#include "ocr/OcrEngine.h"
#include "base/Config.h"
#include "base/Log.h"
#include "base/Text.h"
#include "ocr/OcrFile.h"
#include "services/Call.h"
#include "services/ServiceMemory.h"
#include "services/StatusCode.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/OcrStore.h"

#include <algorithm>
#include <future>
#include <tuple>

namespace kvx::server {

namespace {

constexpr std::chrono::milliseconds poll { 500 };
constexpr Time keptAfterEnd = 3'600'000;
constexpr std::size_t largestText = std::size_t { 16 } << 20;
constexpr int searchablePdf = 2;

std::string failure(int page, const std::string &reason)
{
    return statusSentence(StatusCode::OcrPageFailed,
        { page == OcrStore::documentPage ? "all" : std::to_string(page + 1), reason });
}

OcrStore::Result failedPage(int page, const std::string &reason)
{
    return { page, false, {}, static_cast<int>(StatusCode::OcrPageFailed), failure(page, reason) };
}

} // namespace

std::string ocrJobKey(const std::string &jobId)
{
    return "ocr " + jobId;
}

struct OcrEngine::Task {
    OcrStore::Job job;
    int page = 0;
    std::vector<std::string> documents; ///< blobs to put together
    std::shared_ptr<StopSignal> stop;
};

/// What came of a task: files that are in the blob store, or a reason.
struct OcrEngine::Product {
    std::shared_ptr<const ReceivedFile> text;
    std::shared_ptr<const ReceivedFile> pdf;
    std::string reason;
    bool stopped = false;
};

OcrEngine::OcrEngine(
    const Environment &environment, DbPool &pool, std::function<void(const std::string &)> wakeHeld)
    : m_environment(environment)
    , m_pool(pool)
    , m_wakeHeld(std::move(wakeHeld))
    , m_program(environment.config)
{
    resume();
    for (int i = 0; i < environment.config.ocrWorkers; ++i)
        m_threads.emplace_back([this] { run(); });
}

OcrEngine::~OcrEngine()
{
    m_ending = true;
    m_environment.memory->ocr.stopAll();
    for (std::thread &thread : m_threads) {
        m_environment.memory->ocr.wake();
        thread.join();
    }
}

/// Runs in the database's writing thread, in a transaction, and waits for it. Throws what it
/// throws.
void OcrEngine::write(const std::function<void(Db &)> &job) const
{
    std::promise<void> promise;
    m_pool.write([&](Db &db) {
        try {
            Transaction transaction(db, Transaction::Kind::Write);
            job(db);
            transaction.commit();
            promise.set_value();
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
    });
    promise.get_future().get();
}

void OcrEngine::resume()
{
    const Time now = m_environment.clock.now();
    write([now](Db &db) {
        OcrStore store(db);
        std::string last;
        for (const OcrStore::Interrupted &page : store.interrupted()) {
            if (page.again)
                store.putBack(page.jobId, page.page);
            else
                store.end(page.jobId, page.page,
                    failedPage(page.page, "the server broke off twice while it was in work"), {},
                    now);
            if (page.jobId != last)
                store.countTry(page.jobId);
            last = page.jobId;
        }
    });
}

void OcrEngine::run()
{
    while (!m_ending) {
        Task task;
        bool taken = false;
        attempt([&] { taken = take(task); });
        if (!taken) {
            m_environment.memory->ocr.wait(poll);
            continue;
        }
        const Product product = work(task);
        // A page whose end cannot be written would be in work for ever.
        while (!attempt([&] { record(task, product); }) && !m_ending)
            std::this_thread::sleep_for(poll);
    }
}

bool OcrEngine::attempt(const std::function<void()> &step)
{
    try {
        step();
        return true;
    } catch (const std::exception &error) {
        logLine(LogLevel::Error, "recognition is held up", { { "cause", error.what() } });
        return false;
    }
}

/// The page that comes next, now in work: of the user with the fewest pages in work, among these of
/// the one whose last turn is longest ago, of his oldest job.
bool OcrEngine::take(Task &task)
{
    bool taken = false;
    write([&](Db &db) {
        OcrStore store(db);
        OcrWork &memory = m_environment.memory->ocr;
        const auto candidates = store.candidates();
        const auto next = std::min_element(candidates.begin(), candidates.end(),
            [&memory](const OcrStore::Candidate &a, const OcrStore::Candidate &b) {
                return std::make_tuple(a.runningOfUser, memory.lastTurn(a.userId))
                    < std::make_tuple(b.runningOfUser, memory.lastTurn(b.userId));
            });
        if (next == candidates.end() || m_ending)
            return;
        task.job = store.find(next->jobId).value();
        task.page = next->page;
        if (task.page == OcrStore::documentPage)
            task.documents = store.pageDocuments(next->jobId);
        store.start(next->jobId, next->page);
        memory.takeTurn(next->userId);
        // Here, where a cancellation comes before or after, but not between.
        task.stop = memory.begin(next->jobId);
        taken = true;
    });
    if (m_ending && taken)
        task.stop->stop();
    return taken;
}

OcrEngine::Product OcrEngine::work(const Task &task) const
{
    const auto start = std::chrono::steady_clock::now();
    Product product;
    try {
        product = task.page == OcrStore::documentPage ? join(task) : recognise(task);
    } catch (const std::exception &error) {
        logLine(LogLevel::Error, "recognition failed",
            { { "job", task.job.id }, { "cause", error.what() } });
        product.reason = "the server could not work on it";
    }
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    if (!product.stopped && task.page != OcrStore::documentPage)
        m_environment.memory->ocr.noteDuration(passed);
    return product;
}

OcrEngine::Product OcrEngine::recognise(const Task &task) const
{
    const Config &config = m_environment.config;
    const OcrFile text(config);
    const OcrFile pdf(config);
    const auto outcome
        = m_program.run({ { "page", std::to_string(task.page), std::to_string(task.job.exportType),
                              task.job.languages },
                            static_cast<int>(config.ocrPageTime / 1000),
                            BlobStore(config.data).path(task.job.blob), pdf.path, text.path },
            task.stop.get());
    using End = OcrProgram::Outcome::End;
    if (outcome.end != End::Done)
        return { {}, {}, outcome.end == End::NoLanguage ? "its language is gone" : outcome.reason,
            outcome.end == End::Stopped };
    std::string bytes;
    if (!text.read(bytes, largestText))
        return { {}, {}, "its result is too large", false };
    if (!isValidUtf8(bytes))
        return { {}, {}, "its result is no text", false };
    Product product;
    product.text = text.place(config);
    if (task.job.exportType == searchablePdf)
        product.pdf = pdf.place(config);
    return product;
}

OcrEngine::Product OcrEngine::join(const Task &task) const
{
    if (task.documents.empty())
        return { {}, {}, "no page could be recognised", false };
    const Config &config = m_environment.config;
    const OcrFile document(config);
    OcrProgram::Task run { { "join" }, static_cast<int>(config.ocrPageTime / 1000), {},
        document.path, {} };
    for (const std::string &blob : task.documents)
        run.arguments.push_back(BlobStore(config.data).path(blob));
    const auto outcome = m_program.run(run, task.stop.get());
    using End = OcrProgram::Outcome::End;
    if (outcome.end != End::Done)
        return { {}, {}, outcome.reason, outcome.end == End::Stopped };
    Product product;
    product.text = document.place(config);
    return product;
}

void OcrEngine::record(const Task &task, const Product &product)
{
    const Time now = m_environment.clock.now();
    write([&](Db &db) {
        OcrStore store(db);
        if (product.stopped) { // cancelled, which stands there already, or the server ends
            store.putBack(task.job.id, task.page);
            return;
        }
        const BlobStore blobs(m_environment.config.data);
        OcrStore::Result result = failedPage(task.page, product.reason);
        for (const auto &file : { product.text, product.pdf }) {
            if (file)
                blobs.record(db, file->path, file->sha256, file->size, now);
        }
        if (product.text)
            result = OcrStore::Result { task.page, true, product.text->sha256, 0, {} };
        store.end(task.job.id, task.page, result,
            product.pdf ? std::optional(product.pdf->sha256) : std::nullopt, now);
    });
    m_environment.memory->ocr.wake(); // the document may be due now
    m_wakeHeld(ocrJobKey(task.job.id));
}

void dropOldOcrJobs(const Environment &environment, Db &db)
{
    OcrStore(db).dropEndedBefore(environment.clock.now() - keptAfterEnd);
}

} // namespace kvx::server
