// Two estimators, two processes, one tender, and a third who may look in for a while: what the
// product is for, on one screen.

#include "demo/Story.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <cstdio>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    if (argc != 4) {
        std::fprintf(stderr, "usage: kvx-demo BUILD-FOLDER BROKER-SCRIPT SAMPLE-FOLDER\n");
        return 2;
    }
    QElapsedTimer timer;
    timer.start();
    kvx::demo::Site site(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]));
    const bool told = kvx::demo::Story(site, QString::fromLocal8Bit(argv[3])).tell();
    site.stop();
    if (told)
        QTextStream(stdout) << QStringLiteral("\nDone in %1 s.\n")
                                   .arg(static_cast<double>(timer.elapsed()) / 1000, 0, 'f', 1);
    return told ? 0 : 1;
}
