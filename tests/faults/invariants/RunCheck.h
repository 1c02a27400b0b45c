#pragma once

#include "Invariant.h"

#include <QStringList>

namespace kvx::test {

/// Where a run left its traces. Nothing is changed in any of these folders; nobody writes to them
/// while they are judged, the server's own folder excepted, of which one state is read.
struct RunTraces {
    QString data; ///< the server's data folder; empty: no server
    QStringList homes; ///< the clients' home folders, with their project copies
    QString history; ///< file of History; empty: none
    QStringList temporaries; ///< more folders where temporary files lie
    QStringList projects; ///< GUIDs to judge; empty: all
    bool deep = true; ///< reads every content of the store and compares its digest
};

/// Everything in which the run broke an invariant, in the order of the invariants. A history that
/// cannot be read is a fault of SavesKept.
QVector<Fault> checkRun(const RunTraces &traces);

/// Appends to the history what the store holds now ("archive"), so that a later judgement sees what
/// has changed since.
void noteArchives(const QString &data, class History &history);

} // namespace kvx::test
