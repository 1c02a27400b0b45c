#include "cli/Output.h"

#include <QJsonDocument>
#include <algorithm>
#include <cstdio>

namespace kvx::cli {

namespace {

void put(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stream);
    std::fputc('\n', stream);
    std::fflush(stream);
}

QString rightsSentence(const QJsonObject &data)
{
    const auto names = [&data](const char *key) {
        return data.value(QLatin1String(key)).toVariant().toStringList().join(QLatin1String(", "));
    };
    QStringList parts;
    if (!names("granted").isEmpty())
        parts.append(QStringLiteral("you now have %1").arg(names("granted")));
    if (!names("withdrawn").isEmpty())
        parts.append(QStringLiteral("you no longer have %1").arg(names("withdrawn")));
    const QString what
        = parts.isEmpty() ? QStringLiteral("another one decides") : parts.join(QLatin1String("; "));
    return QStringLiteral("Your role was changed: %1.").arg(what);
}

QString sentenceOf(const QString &name, const QJsonObject &data)
{
    const QString project = data.value(QLatin1String("project")).toString();
    const QString editor = data.value(QLatin1String("editor")).toString();
    if (name == QLatin1String("projectSaved"))
        return data.contains(QLatin1String("version"))
            ? QStringLiteral("%1 saved \"%2\"; your copy is at version %3.")
                  .arg(editor, project,
                      QString::number(data.value(QLatin1String("version")).toInt()))
            : QStringLiteral("%1 saved \"%2\".").arg(editor, project);
    if (name == QLatin1String("projectFetched"))
        return QStringLiteral("Your copy of \"%1\" is now at version %2.")
            .arg(project, QString::number(data.value(QLatin1String("version")).toInt()));
    if (name == QLatin1String("projectRemoved"))
        return QStringLiteral("A project was removed from your list.");
    if (name == QLatin1String("projectNew"))
        return QStringLiteral("A project is new in your list.");
    if (name == QLatin1String("projectUnpublished"))
        return QStringLiteral("\"%1\" is no longer published.").arg(project);
    if (name == QLatin1String("permissionChanged"))
        return QStringLiteral("Your rights in \"%1\" were changed.").arg(project);
    if (name == QLatin1String("accessRemoved"))
        return QStringLiteral("You no longer have access to a project.");
    if (name == QLatin1String("projectClosed"))
        return QStringLiteral("A project was closed because you no longer have access to it.");
    if (name == QLatin1String("rightsChanged"))
        return rightsSentence(data);
    if (name == QLatin1String("templatesChanged"))
        return QStringLiteral("The report templates were changed.");
    if (name == QLatin1String("connectionLost"))
        return QStringLiteral("The connection for notifications is lost (%1); trying again.")
            .arg(data.value(QLatin1String("error")).toString());
    if (name == QLatin1String("connected"))
        return QStringLiteral("Notifications arrive again; everything was read anew.");
    return QString();
}

} // namespace

void Output::write(const QJsonObject &object) const
{
    put(stdout, QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

int Output::done(const QString &sentence, QJsonObject data)
{
    if (m_json) {
        data.insert(QStringLiteral("exit"), Done);
        write(data);
    } else if (!sentence.isEmpty()) {
        put(stdout, sentence);
    }
    return Done;
}

int Output::failed(ExitCode exit, const QString &reason, QJsonObject data)
{
    if (m_json) {
        data.insert(QStringLiteral("exit"), exit);
        data.insert(QStringLiteral("error"), reason);
        write(data);
    } else {
        put(stderr, QLatin1String("kvx: ") + reason);
    }
    return exit;
}

void Output::line(const QString &text) const
{
    if (!m_json)
        put(stdout, text);
}

void Output::table(const QStringList &heads, const QVector<QStringList> &rows) const
{
    if (m_json)
        return;
    QVector<int> widths;
    for (int column = 0; column < heads.size(); ++column) {
        int width = heads.at(column).size();
        for (const QStringList &row : rows)
            width = std::max(width, row.value(column).size());
        widths.append(width);
    }
    const auto print = [&](const QStringList &row) {
        QString text;
        for (int column = 0; column < heads.size(); ++column)
            text += row.value(column).leftJustified(widths.at(column) + 2);
        while (text.endsWith(QLatin1Char(' ')))
            text.chop(1);
        put(stdout, text);
    };
    print(heads);
    for (const QStringList &row : rows)
        print(row);
}

void Output::event(const QString &name, const QJsonObject &data) const
{
    if (m_json) {
        QJsonObject object = data;
        object.insert(QStringLiteral("event"), name);
        write(object);
        return;
    }
    const QString sentence = sentenceOf(name, data);
    if (!sentence.isEmpty())
        put(stdout, sentence);
}

} // namespace kvx::cli
