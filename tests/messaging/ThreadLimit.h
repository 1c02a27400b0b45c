#pragma once

namespace kvx::test {

/// While it lives, the calling thread can start so many threads more; then the system refuses, as
/// it does at its limit. Other threads are not concerned.
class ThreadLimit {
public:
    explicit ThreadLimit(int allowed);
    ~ThreadLimit();
    ThreadLimit(const ThreadLimit &) = delete;
    ThreadLimit &operator=(const ThreadLimit &) = delete;

    /// How often a thread was refused since its construction.
    static int refused();
};

} // namespace kvx::test
