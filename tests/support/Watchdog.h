#pragma once

#include <gtest/gtest.h>

namespace kvx::test {

/// Ends the process when one test case runs longer than the limit, after writing the stack of
/// every thread to standard error: a hang shows where it hangs.
/// The limit is 60 s, or KVX_TEST_LIMIT seconds where that is set.
class Watchdog : public testing::EmptyTestEventListener {
public:
    Watchdog();
    ~Watchdog() override;
    void OnTestStart(const testing::TestInfo &info) override;
    void OnTestEnd(const testing::TestInfo &info) override;

    /// For a case that is known to take long: a new limit for the case that is running.
    static void allow(int seconds);
};

} // namespace kvx::test
