#include "store/DbPool.h"
#include "store/Db.h"

namespace kvx::server {

DbPool::DbPool(const std::string &file, int readers)
    : m_file(file)
{
    for (int i = 0; i <= readers; ++i)
        m_connections.push_back(std::make_unique<Db>(file));
    for (std::size_t i = 0; i < m_connections.size(); ++i) {
        Queue &queue = i == 0 ? m_writing : m_reading;
        Db &db = *m_connections[i];
        m_threads.emplace_back([&queue, &db] { work(queue, db); });
    }
}

DbPool::~DbPool()
{
    end(m_reading);
    end(m_writing);
    for (std::thread &thread : m_threads)
        thread.join();
}

void DbPool::write(Job job)
{
    add(m_writing, std::move(job));
}

void DbPool::writeNext(std::vector<Job> jobs)
{
    {
        const std::lock_guard<std::mutex> lock(m_writing.mutex);
        m_writing.jobs.insert(m_writing.jobs.begin(), std::make_move_iterator(jobs.begin()),
            std::make_move_iterator(jobs.end()));
    }
    m_writing.changed.notify_one();
}

void DbPool::read(Job job)
{
    add(m_reading, std::move(job));
}

void DbPool::readHere(const Job &job)
{
    std::unique_ptr<Db> db;
    try {
        db = takeSpare();
    } catch (const DbError &) {
        read(job);
        return;
    }
    job(*db);
    const std::lock_guard<std::mutex> lock(m_spareMutex);
    m_spare.push_back(std::move(db));
}

std::unique_ptr<Db> DbPool::takeSpare()
{
    {
        const std::lock_guard<std::mutex> lock(m_spareMutex);
        if (!m_spare.empty()) {
            std::unique_ptr<Db> db = std::move(m_spare.back());
            m_spare.pop_back();
            return db;
        }
    }
    return std::make_unique<Db>(m_file);
}

void DbPool::add(Queue &queue, Job job)
{
    {
        const std::lock_guard<std::mutex> lock(queue.mutex);
        queue.jobs.push_back(std::move(job));
    }
    queue.changed.notify_one();
}

void DbPool::end(Queue &queue)
{
    {
        const std::lock_guard<std::mutex> lock(queue.mutex);
        queue.ending = true;
    }
    queue.changed.notify_all();
}

void DbPool::work(Queue &queue, Db &db)
{
    while (true) {
        Job job;
        {
            std::unique_lock<std::mutex> lock(queue.mutex);
            queue.changed.wait(lock, [&queue] { return queue.ending || !queue.jobs.empty(); });
            if (queue.jobs.empty())
                return;
            job = std::move(queue.jobs.front());
            queue.jobs.pop_front();
        }
        job(db);
    }
}

} // namespace kvx::server
