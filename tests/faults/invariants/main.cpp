#include "RunCheck.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <cstdio>

using namespace kvx::test;

/// Prints every fault as a line. Exit code 0: none; 1: some; 2: usage.
int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Judges what a run left behind; docs/testing.md says how."));
    parser.addHelpOption();
    const QCommandLineOption data(QStringLiteral("data"),
        QStringLiteral("The server's data folder"), QStringLiteral("folder"));
    const QCommandLineOption home(QStringLiteral("home"),
        QStringLiteral("A client's home folder; may be repeated"), QStringLiteral("folder"));
    const QCommandLineOption history(
        QStringLiteral("history"), QStringLiteral("What happened"), QStringLiteral("file"));
    const QCommandLineOption temporary(QStringLiteral("temporary"),
        QStringLiteral("A folder of temporary files; may be repeated"), QStringLiteral("folder"));
    const QCommandLineOption project(QStringLiteral("project"),
        QStringLiteral("Only this project; may be repeated"), QStringLiteral("GUID"));
    const QCommandLineOption quick(
        QStringLiteral("quick"), QStringLiteral("Do not read every content of the store"));
    parser.addOptions({ data, home, history, temporary, project, quick });
    if (!parser.parse(application.arguments()) || !parser.positionalArguments().isEmpty()
        || !(parser.isSet(data) || parser.isSet(history))) {
        std::fprintf(stderr, "%s\n%s", qUtf8Printable(parser.errorText()),
            qUtf8Printable(parser.helpText()));
        return 2;
    }
    RunTraces traces;
    traces.data = parser.value(data);
    traces.homes = parser.values(home);
    traces.history = parser.value(history);
    traces.temporaries = parser.values(temporary);
    traces.projects = parser.values(project);
    traces.deep = !parser.isSet(quick);
    const QVector<Fault> faults = checkRun(traces);
    for (const Fault &fault : faults)
        std::printf("%s\n", qUtf8Printable(fault.line()));
    return faults.isEmpty() ? 0 : 1;
}
