#include "messaging/CallGate.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

using kvx::CallGate;
using namespace std::chrono_literals;

TEST(CallGate, letsInUntilItIsClosed)
{
    CallGate gate;
    EXPECT_TRUE(bool(CallGate::Pass(gate)));
    gate.close();
    EXPECT_FALSE(bool(CallGate::Pass(gate)));
    EXPECT_TRUE(gate.waitUntilEmpty(0ms));
}

TEST(CallGate, waitsForThoseInside)
{
    CallGate gate;
    auto pass = std::make_unique<CallGate::Pass>(gate);
    gate.close();
    EXPECT_FALSE(gate.waitUntilEmpty(1ms));
    std::thread leaving([&] { pass.reset(); });
    gate.waitUntilEmpty();
    leaving.join();
}

TEST(CallGate, oneWhoWasRefusedIsNotInside)
{
    CallGate gate;
    gate.close();
    const CallGate::Pass refused(gate);
    EXPECT_TRUE(gate.waitUntilEmpty(0ms));
}

TEST(CallGate, mayBeDestroyedOnceClosedAndEmpty)
{
    for (int round = 0; round < 2000; ++round) {
        auto gate = std::make_unique<CallGate>();
        std::atomic<bool> inside { false };
        std::thread caller([&inside, pass = std::make_unique<CallGate::Pass>(*gate)]() mutable {
            inside = true;
            pass.reset();
        });
        gate->close();
        gate->waitUntilEmpty();
        gate.reset();
        caller.join();
    }
}
