#pragma once

#include "base/Clock.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kvx::server {

class Db;
class DbPool;
struct Environment;

/// One piece of tidying, run in a writing transaction of its own; it must be short. What is tidied
/// was judged dead at every use before: the janitor only gives space back.
struct Chore {
    const char *name;
    std::function<void(const Environment &, Db &)> work;
};

/// The chores of all services; listed in AllServices.cpp.
const std::vector<Chore> &allChores();

/// Tidies once a minute: sessions that are over, sent messages, old throttle and audit rows,
/// forgotten temporaries, and the chores of the services. A thread of its own.
class Janitor {
public:
    /// `wakeHeld` is called for each project whose log lock a dead session held; it must be
    /// callable as long as the pool runs.
    Janitor(const Environment &environment, DbPool &pool,
        std::function<void(const std::string &)> wakeHeld);
    ~Janitor();

private:
    void run();
    void round();

    const Environment &m_environment;
    DbPool &m_pool;
    const std::function<void(const std::string &)> m_wakeHeld;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_ending = false;
    std::thread m_thread;
};

/// Removes files of `folder` last written before `before`.
void sweepFolder(const std::string &folder, Time before);

} // namespace kvx::server
