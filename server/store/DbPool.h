#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kvx::server {

class Db;

/// The threads that own the database's connections: one that writes, fed by a queue, and some that
/// read beside it. Jobs open their own transactions and let no exception out. Any thread may add
/// jobs; a job may add jobs.
class DbPool {
public:
    using Job = std::function<void(Db &)>;

    DbPool(const std::string &file, int readers);
    ~DbPool(); ///< runs what is queued, then ends the threads
    DbPool(const DbPool &) = delete;
    DbPool &operator=(const DbPool &) = delete;

    void write(Job job);
    /// Before everything that is queued, in the order given.
    void writeNext(std::vector<Job> jobs);
    void read(Job job);
    /// Runs the job before it returns, on the calling thread, which is spared two changes of
    /// threads; for what reads a few rows. Queues it when no further connection can be made.
    void readHere(const Job &job);

private:
    struct Queue {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<Job> jobs;
        bool ending = false;
    };
    static void work(Queue &queue, Db &db);
    static void add(Queue &queue, Job job);
    static void end(Queue &queue);
    std::unique_ptr<Db> takeSpare();

    const std::string m_file;
    Queue m_writing;
    Queue m_reading;
    std::vector<std::unique_ptr<Db>> m_connections;
    std::vector<std::thread> m_threads;
    std::mutex m_spareMutex;
    std::vector<std::unique_ptr<Db>> m_spare; ///< as many as threads ever read at the same time
};

} // namespace kvx::server
