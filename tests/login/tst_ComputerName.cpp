#include "login/ComputerName.h"

#include <gtest/gtest.h>
#include <unistd.h>

TEST(ComputerName, isWhatTheSystemReports)
{
    char name[1024] = {};
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);

    EXPECT_EQ(kvx::computerName(), QString::fromLocal8Bit(name).left(256));
    EXPECT_FALSE(kvx::computerName().isEmpty());
}
