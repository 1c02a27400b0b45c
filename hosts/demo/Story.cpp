#include "demo/Story.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <algorithm>
#include <cstdio>

namespace kvx::demo {

using host::ShellProcess;

Story::Story(Site &site, const QString &folder)
    : m_site(site)
    , m_folder(folder)
    , m_out(stdout)
{
}

bool Story::tell()
{
    return begin() && work() && savePushed() && saveTogether() && lookIn() && shareTemplate()
        && readPage() && lookOut() && compare() && m_anna.stop() && m_ben.stop();
}

void Story::title(const QString &text)
{
    m_out << '\n' << text << '\n' << Qt::flush;
}

void Story::step(const QString &who, const QString &text)
{
    m_out << QStringLiteral("  %1  %2\n").arg(who.leftJustified(6), text) << Qt::flush;
}

bool Story::fail(const QString &text)
{
    m_out << QStringLiteral("\nThe demo failed: %1\n").arg(text) << Qt::flush;
    return false;
}

QString Story::fileArgument(const char *name) const
{
    return ShellProcess::quoted(
        QFileInfo(m_folder + QLatin1Char('/') + QLatin1String(name)).absoluteFilePath());
}

bool Story::must(ShellProcess &shell, const QString &command, QJsonObject *result)
{
    const QJsonObject object = shell.run(command);
    if (result)
        *result = object;
    if (object.value(QLatin1String("exit")).toInt(-1) == 0)
        return true;
    return fail(QStringLiteral("\"%1\" gave: %2")
                    .arg(command, object.value(QLatin1String("error")).toString()));
}

bool Story::begin()
{
    title(QStringLiteral("The site office"));
    QElapsedTimer timer;
    timer.start();
    if (!m_site.start())
        return fail(m_site.error());
    step(QStringLiteral("server"),
        QStringLiteral("broker and server are up on this machine (%1 s)")
            .arg(static_cast<double>(timer.elapsed()) / 1000, 0, 'f', 1));
    if (!m_site.addUser(QStringLiteral("anna@example.com"), QStringLiteral("Anna Weiss"))
        || !m_site.addUser(QStringLiteral("ben@example.com"), QStringLiteral("Ben Ito")))
        return fail(m_site.error());
    if (!m_anna.start(
            m_site.kvx(), m_site.server(), m_site.account(QStringLiteral("anna@example.com"))))
        return fail(m_anna.error());
    if (!m_ben.start(
            m_site.kvx(), m_site.server(), m_site.account(QStringLiteral("ben@example.com"))))
        return fail(m_ben.error());
    step(QStringLiteral("both"),
        QStringLiteral("Anna and Ben log in, each in a process of their own"));

    title(QStringLiteral("Anna shares a tender"));
    QJsonObject result;
    timer.restart();
    if (!must(m_anna,
            QStringLiteral("new %1 --from %2").arg(m_project, fileArgument("school-nordring.x83")),
            &result))
        return false;
    step(QStringLiteral("Anna"),
        QStringLiteral("imports a GAEB bill of quantities and shares it: %1 items (%2 ms)")
            .arg(result.value(QLatin1String("items")).toInt())
            .arg(timer.elapsed()));
    if (!must(
            m_anna, QStringLiteral("permissions %1 --set ben@example.com=1,1,1,1").arg(m_project)))
        return false;
    step(QStringLiteral("Anna"), QStringLiteral("gives Ben the right to work in it"));
    if (!m_ben.waitForEvent(QStringLiteral("projectNew")))
        return fail(QStringLiteral("Ben heard nothing of the project"));
    timer.restart();
    if (!must(m_ben, QStringLiteral("open ") + m_project))
        return false;
    step(QStringLiteral("Ben"),
        QStringLiteral("sees it appear in his list and opens it (%1 ms)").arg(timer.elapsed()));
    return true;
}

bool Story::work()
{
    QJsonObject shown;
    if (!must(m_anna, QStringLiteral("show ") + m_project, &shown))
        return false;
    for (const QJsonValue &item : shown.value(QLatin1String("list")).toArray()) {
        if (!item.toObject().value(QLatin1String("unit")).toString().isEmpty())
            m_items.append(item.toObject().value(QLatin1String("number")).toString());
    }
    if (m_items.size() < 8)
        return fail(QStringLiteral("the bill has too few items"));

    title(QStringLiteral("Both price it"));
    if (!must(m_anna,
            QStringLiteral("checkout %1 %2")
                .arg(m_project, m_items.mid(0, 3).join(QLatin1Char(' ')))))
        return false;
    step(QStringLiteral("Anna"),
        QStringLiteral("checks out %1").arg(m_items.mid(0, 3).join(QLatin1String(", "))));
    const QJsonObject refused
        = m_ben.run(QStringLiteral("edit %1 %2 rate=1").arg(m_project, m_items.at(1)));
    if (refused.value(QLatin1String("exit")).toInt() == 0)
        return fail(QStringLiteral("Ben could change an item that Anna holds"));
    step(QStringLiteral("Ben"),
        QStringLiteral("tries %1 and is told: %2")
            .arg(m_items.at(1), refused.value(QLatin1String("error")).toString()));
    for (int i = 0; i < 3; ++i) {
        if (!must(m_anna,
                QStringLiteral("edit %1 %2 rate=%3.50")
                    .arg(m_project, m_items.at(i), QString::number(12 + i))))
            return false;
    }
    step(QStringLiteral("Anna"), QStringLiteral("prices her three items"));
    for (int i = 4; i < 7; ++i) {
        if (!must(m_ben,
                QStringLiteral("edit %1 %2 rate=%3.25")
                    .arg(m_project, m_items.at(i), QString::number(80 + i))))
            return false;
    }
    step(QStringLiteral("Ben"),
        QStringLiteral("prices %1").arg(m_items.mid(4, 3).join(QLatin1String(", "))));
    return true;
}

bool Story::savePushed()
{
    title(QStringLiteral("Anna saves; Ben's copy follows by push"));
    m_ben.send(QStringLiteral("wait %1 0").arg(m_project));
    QElapsedTimer timer;
    timer.start();
    QJsonObject saved;
    if (!must(m_anna, QStringLiteral("save ") + m_project, &saved))
        return false;
    const qint64 saveTime = timer.elapsed();
    const QJsonObject arrived = m_ben.result();
    if (arrived.value(QLatin1String("exit")).toInt(-1) != 0)
        return fail(arrived.value(QLatin1String("error")).toString());
    step(QStringLiteral("Anna"),
        QStringLiteral("saves version %1 (%2 ms)")
            .arg(saved.value(QLatin1String("version")).toInt())
            .arg(saveTime));
    step(QStringLiteral("Ben"),
        QStringLiteral("has it in his copy %1 ms after Anna began to save, his own edits kept")
            .arg(timer.elapsed()));
    return true;
}

bool Story::saveTogether()
{
    title(QStringLiteral("Both save at the same moment; neither save is lost"));
    QJsonObject status;
    if (!must(m_anna, QStringLiteral("edit %1 %2 quantity=7.5").arg(m_project, m_items.at(0)))
        || !must(m_anna, QStringLiteral("status ") + m_project, &status))
        return false;
    const int before = status.value(QLatin1String("version")).toInt();
    m_anna.send(QStringLiteral("save ") + m_project);
    m_ben.send(QStringLiteral("save ") + m_project);
    const QJsonObject anna = m_anna.result();
    const QJsonObject ben = m_ben.result();
    for (const auto &[who, saved] :
        { std::pair(QStringLiteral("Anna"), anna), std::pair(QStringLiteral("Ben"), ben) }) {
        if (!saved.value(QLatin1String("published")).toBool())
            return fail(saved.value(QLatin1String("error")).toString());
        step(who,
            QStringLiteral("publishes version %1 (%2 ms)")
                .arg(saved.value(QLatin1String("version")).toInt())
                .arg(saved.value(QLatin1String("milliseconds")).toInt()));
    }
    const auto [first, second] = std::minmax({ anna.value(QLatin1String("version")).toInt(),
        ben.value(QLatin1String("version")).toInt() });
    if (first != before + 1 || second != before + 2)
        return fail(
            QStringLiteral("the saves after version %1 became versions %2 and %3")
                .arg(QString::number(before), QString::number(first), QString::number(second)));
    return true;
}

bool Story::compare()
{
    title(QStringLiteral("The proof"));
    QJsonObject anna;
    QJsonObject ben;
    for (ShellProcess *shell : { &m_anna, &m_ben }) {
        if (!must(*shell, QStringLiteral("wait %1 2").arg(m_project))
            || !must(*shell, QStringLiteral("checkin %1 --all").arg(m_project)))
            return false;
    }
    if (!must(m_anna, QStringLiteral("status ") + m_project, &anna)
        || !must(m_ben, QStringLiteral("status ") + m_project, &ben))
        return false;
    for (const auto &[who, status] :
        { std::pair(QStringLiteral("Anna"), anna), std::pair(QStringLiteral("Ben"), ben) })
        step(who,
            QStringLiteral("version %1, total %2, contents %3…")
                .arg(QString::number(status.value(QLatin1String("version")).toInt()),
                    status.value(QLatin1String("total")).toString(),
                    status.value(QLatin1String("digest")).toString().left(16)));
    if (anna.value(QLatin1String("digest")) != ben.value(QLatin1String("digest")))
        return fail(QStringLiteral("the two project databases differ"));
    step(QStringLiteral("both"), QStringLiteral("the two project databases are equal, row by row"));
    return true;
}

} // namespace kvx::demo
