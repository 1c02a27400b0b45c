#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVector>

namespace kvx::cli {

/// Exit codes of kvx; the same stand as "exit" in JSON results.
enum ExitCode {
    Done = 0,
    Refused = 1, ///< the server or the data did not allow it; the message says why
    Usage = 2,
    Unreachable = 3,
    LoginRefused = 4,
    NotPublished = 5, ///< a save that published nothing; the edits are kept
    Clash = 6 ///< a colleague's change and unsaved edits change the same item
};

/// What kvx prints: sentences and tables for people, or one JSON object a line for programs.
class Output {
public:
    explicit Output(bool json)
        : m_json(json)
    {
    }
    bool json() const { return m_json; }

    /// The end of a command that succeeded.
    int done(const QString &sentence, QJsonObject data = {});
    /// The end of a command that did not.
    int failed(ExitCode exit, const QString &reason, QJsonObject data = {});
    /// For people only.
    void line(const QString &text) const;
    void table(const QStringList &heads, const QVector<QStringList> &rows) const;
    /// Something that happened on its own.
    void event(const QString &name, const QJsonObject &data) const;

private:
    void write(const QJsonObject &object) const;

    bool m_json;
};

} // namespace kvx::cli
