#include "support/Watchdog.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <execinfo.h>
#include <mutex>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace kvx::test {

namespace {

using Clock = std::chrono::steady_clock;

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::string running;
    Clock::time_point deadline = Clock::time_point::max();
    bool ending = false;
    std::thread thread;
};

State &state()
{
    static State *instance
        = new State; // GoogleTest deletes its listeners after our statics are gone
    return *instance;
}

int defaultLimit()
{
    const char *text = std::getenv("KVX_TEST_LIMIT");
    const int seconds = text ? std::atoi(text) : 0;
    return seconds > 0 ? seconds : 60;
}

void printOwnStack(int)
{
    void *frames[64];
    const int count = backtrace(frames, 64);
    dprintf(STDERR_FILENO, "--- thread %ld\n", syscall(SYS_gettid));
    backtrace_symbols_fd(frames, count, STDERR_FILENO);
}

void printAllStacks()
{
    std::signal(SIGUSR2, printOwnStack);
    DIR *tasks = opendir("/proc/self/task");
    if (!tasks)
        return;
    const long own = syscall(SYS_gettid);
    while (const dirent *entry = readdir(tasks)) {
        const long id = std::atol(entry->d_name);
        if (id <= 0 || id == own)
            continue;
        syscall(SYS_tgkill, getpid(), id, SIGUSR2);
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // one stack after the other
    }
    closedir(tasks);
}

void watch()
{
    State &s = state();
    std::unique_lock<std::mutex> lock(s.mutex);
    while (!s.ending) {
        if (s.deadline == Clock::time_point::max()) {
            s.changed.wait(lock);
        } else if (s.changed.wait_until(lock, s.deadline) == std::cv_status::timeout
            && Clock::now() >= s.deadline) {
            std::fprintf(stderr, "WATCHDOG: %s does not end; stacks follow\n", s.running.c_str());
            printAllStacks();
            std::_Exit(124);
        }
    }
}

} // namespace

Watchdog::Watchdog()
{
    void *warmUp[1];
    backtrace(warmUp, 1); // loads the unwinder now, not inside the signal handler
    state().thread = std::thread(watch);
}

Watchdog::~Watchdog()
{
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        state().ending = true;
    }
    state().changed.notify_all();
    state().thread.join();
}

void Watchdog::OnTestStart(const testing::TestInfo &info)
{
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        state().running = std::string(info.test_suite_name()) + "." + info.name();
    }
    allow(defaultLimit());
}

void Watchdog::OnTestEnd(const testing::TestInfo &)
{
    const std::lock_guard<std::mutex> lock(state().mutex);
    state().deadline = Clock::time_point::max();
}

void Watchdog::allow(int seconds)
{
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        state().deadline = Clock::now() + std::chrono::seconds(seconds);
    }
    state().changed.notify_all();
}

} // namespace kvx::test
