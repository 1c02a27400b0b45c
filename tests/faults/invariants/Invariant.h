#pragma once

#include <QString>
#include <QVector>
#include <functional>

namespace kvx::test {

/// What must hold after every run, whatever failed in it.
enum class Invariant {
    SavesKept, ///< an acknowledged save is there, with the content that its author had
    VersionsDense, ///< versions without gaps, each archive the same for ever
    FileIsBaseAndLogs, ///< the server's project file equals the base with all logs applied
    CopiesEqual, ///< after a synchronisation all copies stand where the server stands
    OneLockHolder, ///< one save lock holder at a time, none beyond his lease
    NumbersDisjoint, ///< no item number is given to two
    CallsInTime, ///< every call returns within its limit
    FilesWhole, ///< no part of a file under a final name, no temporary file older than a day
    CopiesSound, ///< a local copy is undamaged, its content is what its version says
    NothingOutside, ///< nothing changed outside the folders of the run
    MemoryInBounds,
    LogsClean ///< no sanitizer's report, no deadlock that Qt noticed
};

/// "saves kept", "versions dense" …
QString nameOf(Invariant invariant);

struct Fault {
    Invariant invariant;
    QString text; ///< a sentence that names what is wrong

    QString line() const { return nameOf(invariant) + QLatin1String(": ") + text; }
};

using Report = std::function<void(Invariant, const QString &)>;

} // namespace kvx::test
