#include "support/Watchdog.h"

#include <QCoreApplication>
#include <QTemporaryDir>

int main(int argc, char **argv)
{
    // Temporary files of the code under test go to a folder of this process's own, as a host does
    // it.
    const QTemporaryDir temporary;
    qputenv("TMPDIR", temporary.path().toUtf8());

    testing::InitGoogleTest(&argc, argv);
    const QCoreApplication application(argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new kvx::test::Watchdog);
    return RUN_ALL_TESTS();
}
