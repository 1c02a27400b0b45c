#pragma once

#include <QFile>
#include <QJsonObject>
#include <QString>
#include <QVector>

namespace kvx::test {

/// One line of a run's history.
struct Event {
    QString name;
    qint64 at = 0; ///< ms, of one clock that never goes back
    QJsonObject fields;

    QString text(const char *key) const { return fields.value(QLatin1String(key)).toString(); }
    qint64 number(const char *key) const
    {
        return static_cast<qint64>(fields.value(QLatin1String(key)).toDouble());
    }
    bool has(const char *key) const { return fields.contains(QLatin1String(key)); }
};

/// What happened in a run, as those saw it who took part: a file of JSON objects, one a line, each
/// with "event" and "at". Every line is in the file when `note` returns, so that a killed writer
/// loses none. "project" is a GUID with braces, "user" an e-mail. The events:
///
///     base       project, file: a copy of the project file before its first log
///     saved      user, project, version; digest (of the saver's content then, hexadecimal) if
///     known synced     user, project, version; digest if nothing was pending archive    project,
///     version, sha256: a change log as it was published or downloaded converged  project: from
///     here on nobody edits, and every copy was brought up to date range      user, device,
///     project, min, max: item numbers that were received locked     user, project, lease (ms): the
///     save lock was given or renewed busy       user, project, holder; hold (ms, how long the
///     server kept the question) released   user, project ended      user: his session is over
///     begin      call (unique), process, limit (ms)
///     end        call
///     killed     process: its calls do not end any more
///     outside    folder, snapshot (of FolderSnapshot): nothing in there may change
///     memory     process, bytes, limit
///     stderr     file: what a process wrote to its standard error
class History {
public:
    /// Appends to the file.
    explicit History(const QString &file);

    void note(const char *event, QJsonObject fields = {});
    const QString &file() const { return m_path; }

    /// "saved", by the result of kvx's save; nothing when it published nothing. A result whose
    /// digest could not be read goes without.
    void noteSaved(const QString &user, const QString &project, const QJsonObject &result);
    /// "synced", by kvx's status after a synchronisation.
    void noteSynced(const QString &user, const QString &project, const QJsonObject &status);
    /// "begin"; the call, for `end`.
    QString begin(const QString &process, const QString &command, int limitMs);
    void end(const QString &call);

    /// False with a sentence when a line is none of the above.
    static bool read(const QString &file, QVector<Event> *events, QString *error);

private:
    QString m_path;
    QFile m_file;
    int m_calls = 0;
};

} // namespace kvx::test
