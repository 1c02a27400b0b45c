#define KVX_LOG_SOURCE "some/folder\\Chief.cpp"
#include "frame/Log.h"

#include "support/FakeHost.h"

#include <gtest/gtest.h>

TEST(LogSource, aFileCanLogUnderAnotherName)
{
    kvx::test::FakeHost host;
    KVX_INFO("a");
    EXPECT_EQ(host.takeLog().value(0).source, QStringLiteral("Chief.cpp"));
}
