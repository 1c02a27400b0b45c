#include "HistoryChecks.h"

#include <QMap>
#include <algorithm>

namespace kvx::test {

namespace {

/// How long the server may keep a question before it says who holds the lock.
constexpr qint64 usualHold = 5000; // ms
/// Between what happens in one process and its note in the history.
constexpr qint64 tolerance = 1000; // ms

} // namespace

void HistoryChecks::run()
{
    checkLocks();
    checkRanges();
    checkCalls();
    checkMemory();
    checkLogs();
}

void HistoryChecks::checkLocks()
{
    struct Holder {
        QString user;
        qint64 until = 0; // end of the lease
    };
    QMap<QString, Holder> holders; // by project
    for (const Event &event : m_events) {
        const QString project = event.text("project");
        const QString user = event.text("user");
        Holder &holder = holders[project];
        if (event.name == QLatin1String("locked")) {
            if (!holder.user.isEmpty() && holder.user != user
                && event.at + tolerance < holder.until)
                m_report(Invariant::OneLockHolder,
                    QStringLiteral("project %1: %2 got the save lock of %3, whose lease had %4 ms "
                                   "left")
                        .arg(project, user, holder.user)
                        .arg(holder.until - event.at));
            holder = { user, event.at + event.number("lease") };
        } else if (event.name == QLatin1String("busy")) {
            const qint64 hold = event.has("hold") ? event.number("hold") : usualHold;
            if (event.text("holder") == holder.user && event.at > holder.until + hold + tolerance)
                m_report(Invariant::OneLockHolder,
                    QStringLiteral("project %1: %2 holds the save lock %3 ms beyond his lease")
                        .arg(project, holder.user)
                        .arg(event.at - holder.until));
        } else if (event.name == QLatin1String("released") && holder.user == user) {
            holder = {};
        } else if (event.name == QLatin1String("ended")) {
            for (Holder &one : holders) {
                if (one.user == user)
                    one = {};
            }
        }
    }
}

void HistoryChecks::checkRanges()
{
    struct Range {
        qint64 min, max;
        QString owner;
    };
    QMap<QString, QVector<Range>> all; // by project
    for (const Event &event : m_events) {
        if (event.name != QLatin1String("range"))
            continue;
        const Range range { event.number("min"), event.number("max"),
            event.text("user") + QLatin1String(" on ") + event.text("device") };
        if (range.min < 1 || range.max < range.min)
            m_report(Invariant::NumbersDisjoint,
                QStringLiteral("%1 to %2 is no range").arg(range.min).arg(range.max));
        all[event.text("project")].append(range);
    }
    for (auto project = all.begin(); project != all.end(); ++project) {
        QVector<Range> &ranges = project.value();
        std::sort(ranges.begin(), ranges.end(),
            [](const Range &a, const Range &b) { return a.min < b.min; });
        const Range *widest = nullptr;
        for (const Range &range : ranges) {
            // The same block once more, for its owner, is no second one.
            const bool again = widest && widest->owner == range.owner && widest->min == range.min
                && widest->max == range.max;
            if (widest && !again && range.min <= widest->max)
                m_report(Invariant::NumbersDisjoint,
                    QStringLiteral("project %1: %2 to %3 of %4 and %5 to %6 of %7 overlap")
                        .arg(project.key())
                        .arg(widest->min)
                        .arg(widest->max)
                        .arg(widest->owner)
                        .arg(range.min)
                        .arg(range.max)
                        .arg(range.owner));
            if (!widest || range.max >= widest->max)
                widest = &range;
        }
    }
}

void HistoryChecks::checkCalls()
{
    QMap<QString, Event> open;
    for (const Event &event : m_events) {
        const QString call = event.text("call");
        if (event.name == QLatin1String("begin")) {
            open.insert(call, event);
        } else if (event.name == QLatin1String("end")) {
            const Event begin = open.take(call);
            const qint64 took = event.at - begin.at;
            if (begin.name.isEmpty())
                m_report(Invariant::CallsInTime, QStringLiteral("%1 never began").arg(call));
            else if (took > begin.number("limit"))
                m_report(Invariant::CallsInTime,
                    QStringLiteral("%1 took %2 ms of its %3")
                        .arg(call)
                        .arg(took)
                        .arg(begin.number("limit")));
        } else if (event.name == QLatin1String("killed")) {
            for (auto begun = open.begin(); begun != open.end();)
                begun = begun->text("process") == event.text("process") ? open.erase(begun)
                                                                        : std::next(begun);
        }
    }
    for (auto begun = open.cbegin(); begun != open.cend(); ++begun)
        m_report(Invariant::CallsInTime, QStringLiteral("%1 never returned").arg(begun.key()));
}

void HistoryChecks::checkMemory()
{
    for (const Event &event : m_events) {
        if (event.name == QLatin1String("memory") && event.number("bytes") > event.number("limit"))
            m_report(Invariant::MemoryInBounds,
                QStringLiteral("%1 had %2 MiB, %3 were allowed")
                    .arg(event.text("process"))
                    .arg(event.number("bytes") >> 20)
                    .arg(event.number("limit") >> 20));
    }
}

void HistoryChecks::checkLogs()
{
    static const char *const reports[] = { "ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
        "WARNING: ThreadSanitizer", "runtime error: ", "Dead lock detected" };
    for (const Event &event : m_events) {
        if (event.name != QLatin1String("stderr"))
            continue;
        QFile file(event.text("file"));
        if (!file.open(QIODevice::ReadOnly)) {
            m_report(Invariant::LogsClean,
                QStringLiteral("%1: %2").arg(file.fileName(), file.errorString()));
            continue;
        }
        while (!file.atEnd()) {
            const QByteArray line = file.readLine().trimmed();
            for (const char *report : reports) {
                if (line.contains(report))
                    m_report(Invariant::LogsClean,
                        file.fileName() + QLatin1String(": ") + QString::fromUtf8(line));
            }
        }
    }
}

} // namespace kvx::test
