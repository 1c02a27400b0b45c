#pragma once

#include "ocr/OcrProgram.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace kvx::server {

class Db;
class DbPool;
struct Environment;

/// The key under which requests wait for news of a recognition job.
std::string ocrJobKey(const std::string &jobId);

/// Works off the recognition jobs, `ocr.workers` pages at a time, each in a process of its own.
/// Users take turns page by page. Pages that were in work when an earlier run of the server died
/// are done again, once.
class OcrEngine {
public:
    /// `wakeHeld` must be callable as long as this object lives.
    OcrEngine(const Environment &environment, DbPool &pool,
        std::function<void(const std::string &)> wakeHeld);
    /// Ends the pages in work; they wait for the next start.
    ~OcrEngine();

private:
    struct Task;
    struct Product;

    void run();
    static bool attempt(const std::function<void()> &step);
    bool take(Task &task);
    Product work(const Task &task) const;
    Product recognise(const Task &task) const;
    Product join(const Task &task) const;
    void record(const Task &task, const Product &product);
    void write(const std::function<void(Db &)> &job) const;
    void resume();

    const Environment &m_environment;
    DbPool &m_pool;
    const std::function<void(const std::string &)> m_wakeHeld;
    const OcrProgram m_program;
    std::atomic<bool> m_ending { false };
    std::vector<std::thread> m_threads;
};

/// Forgets jobs that ended more than an hour ago.
void dropOldOcrJobs(const Environment &environment, Db &db);

} // namespace kvx::server
