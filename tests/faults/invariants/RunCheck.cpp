#include "RunCheck.h"

#include "FolderChecks.h"
#include "History.h"
#include "HistoryChecks.h"
#include "StoreChecks.h"

#include <algorithm>

namespace kvx::test {

QString nameOf(Invariant invariant)
{
    static const char *const names[]
        = { "saves kept", "versions dense", "project file is base and logs", "copies equal",
              "one lock holder", "numbers disjoint", "calls in time", "files whole", "copies sound",
              "nothing outside", "memory in bounds", "logs clean" };
    return QString::fromLatin1(names[static_cast<int>(invariant)]);
}

QVector<Fault> checkRun(const RunTraces &traces)
{
    QVector<Fault> faults;
    const Report report = [&faults](Invariant invariant, const QString &text) {
        faults.append({ invariant, text });
    };
    QVector<Event> events;
    QString error;
    if (!traces.history.isEmpty() && !History::read(traces.history, &events, &error))
        report(Invariant::SavesKept, error);
    HistoryChecks(events, report).run();
    if (!traces.data.isEmpty())
        StoreChecks(traces, events, report).run();
    checkFolders(traces, events, report);
    std::stable_sort(faults.begin(), faults.end(),
        [](const Fault &a, const Fault &b) { return a.invariant < b.invariant; });
    return faults;
}

} // namespace kvx::test
