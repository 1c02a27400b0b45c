#include "History.h"

#include <QJsonDocument>
#include <QMap>
#include <QStringList>
#include <chrono>

namespace kvx::test {

namespace {

/// Every event with the keys that it cannot do without.
const QMap<QString, QStringList> &knownEvents()
{
    const auto keys
        = [](const char *list) { return QString::fromLatin1(list).split(QLatin1Char(' ')); };
    static const QMap<QString, QStringList> known {
        { QStringLiteral("base"), keys("project file") },
        { QStringLiteral("saved"), keys("user project version") },
        { QStringLiteral("synced"), keys("user project version") },
        { QStringLiteral("archive"), keys("project version sha256") },
        { QStringLiteral("converged"), keys("project") },
        { QStringLiteral("range"), keys("user device project min max") },
        { QStringLiteral("locked"), keys("user project lease") },
        { QStringLiteral("busy"), keys("user project holder") },
        { QStringLiteral("released"), keys("user project") },
        { QStringLiteral("ended"), keys("user") },
        { QStringLiteral("begin"), keys("call process limit") },
        { QStringLiteral("end"), keys("call") },
        { QStringLiteral("killed"), keys("process") },
        { QStringLiteral("outside"), keys("folder snapshot") },
        { QStringLiteral("memory"), keys("process bytes limit") },
        { QStringLiteral("stderr"), keys("file") },
    };
    return known;
}

} // namespace

History::History(const QString &file)
    : m_path(file)
    , m_file(file)
{
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        qFatal("%s: %s", qUtf8Printable(file), qUtf8Printable(m_file.errorString()));
}

void History::note(const char *event, QJsonObject fields)
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    fields.insert(QStringLiteral("event"), QLatin1String(event));
    fields.insert(QStringLiteral("at"),
        static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()));
    m_file.write(QJsonDocument(fields).toJson(QJsonDocument::Compact) + '\n');
}

void History::noteSaved(const QString &user, const QString &project, const QJsonObject &result)
{
    if (!result.value(QLatin1String("published")).toBool())
        return;
    QJsonObject fields { { QStringLiteral("user"), user }, { QStringLiteral("project"), project },
        { QStringLiteral("version"), result.value(QLatin1String("version")) } };
    const QJsonValue digest = result.value(QLatin1String("digest"));
    if (!digest.toString().isEmpty())
        fields.insert(QStringLiteral("digest"), digest);
    note("saved", fields);
}

void History::noteSynced(const QString &user, const QString &project, const QJsonObject &status)
{
    QJsonObject fields { { QStringLiteral("user"), user }, { QStringLiteral("project"), project },
        { QStringLiteral("version"), status.value(QLatin1String("version")) } };
    if (status.value(QLatin1String("pending")).toInt(-1) == 0)
        fields.insert(QStringLiteral("digest"), status.value(QLatin1String("digest")));
    note("synced", fields);
}

QString History::begin(const QString &process, const QString &command, int limitMs)
{
    const QString call = QStringLiteral("%1 of %2 (%3)")
                             .arg(command.section(QLatin1Char(' '), 0, 0), process)
                             .arg(++m_calls);
    note("begin",
        { { QStringLiteral("call"), call }, { QStringLiteral("process"), process },
            { QStringLiteral("limit"), limitMs } });
    return call;
}

void History::end(const QString &call)
{
    note("end", { { QStringLiteral("call"), call } });
}

bool History::read(const QString &path, QVector<Event> *events, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    for (int line = 1; !file.atEnd(); ++line) {
        const QJsonObject object = QJsonDocument::fromJson(file.readLine()).object();
        Event event { object.value(QLatin1String("event")).toString(), 0, object };
        event.at = event.number("at");
        QString wrong;
        if (!knownEvents().contains(event.name) || !event.has("at"))
            wrong = QStringLiteral("no event");
        for (const QString &key : knownEvents().value(event.name)) {
            if (wrong.isEmpty() && !object.contains(key))
                wrong = QStringLiteral("\"%1\" without \"%2\"").arg(event.name, key);
        }
        if (!wrong.isEmpty()) {
            *error = QStringLiteral("%1, line %2: %3").arg(path).arg(line).arg(wrong);
            return false;
        }
        events->append(event);
    }
    return true;
}

} // namespace kvx::test
