#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

namespace kvx::bench {

class Stand;
struct TenderSize;

/// The change logs of a project, on this machine and published on the server: log n makes
/// version n out of version n - 1.
struct ChangeLogs {
    QString guid;
    QString base;
    int rows = 0; ///< changed by each log
    QStringList files;
    QMap<int, QString> copies; ///< version to a project file that stands at it
};

/// Makes a project and so many logs for it, without publishing them. The copies are taken at the
/// versions given; -1 is the base.
ChangeLogs writeChangeLogs(Stand &stand, const QString &name, const TenderSize &size, int count,
    int rows, const QList<int> &copies = {});
/// Opens the project on the server, which publishing takes. A file to publish beside a log where
/// nobody will download it.
QString openForPublishing(Stand &stand, const ChangeLogs &logs);

/// The changeset that a log carries.
QByteArray changesetOf(const QString &file);

} // namespace kvx::bench
