#include "projectlist/ListLock.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using kvx::ListLock;

TEST(ListLock, ItsOwnerPassesAndFreesItAtTheOutermostEnd)
{
    ListLock lock;
    std::atomic<bool> entered { false };
    std::thread other;
    {
        const ListLock::Writing outer(lock);
        {
            const ListLock::Writing inner(lock);
            const ListLock::Writing innermost(lock);
        }
        other = std::thread([&] {
            const ListLock::Writing writing(lock);
            entered = true;
        });
        for (int round = 0; round < 1000; ++round)
            std::this_thread::yield();
        EXPECT_FALSE(entered) << "an inner end must not free it";
    }
    other.join();
    EXPECT_TRUE(entered);
}

TEST(ListLock, OneThreadAtATime)
{
    ListLock lock;
    int value = 0; // unprotected but for the lock
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5000; ++round) {
                const ListLock::Writing outer(lock);
                const int before = ++value;
                const ListLock::Writing inner(lock);
                if (value != before)
                    value = -1000000;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(value, 20000);
}
