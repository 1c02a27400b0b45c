#include "support/Watchdog.h"

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new kvx::test::Watchdog);
    return RUN_ALL_TESTS();
}
