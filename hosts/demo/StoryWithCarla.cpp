#include "demo/Story.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

namespace kvx::demo {

using host::ShellProcess;

namespace {

const QString carla = QStringLiteral("carla@example.com");
const QString role = QStringLiteral("\"Guest reviewer\"");
const QString chapter = QStringLiteral("13.02");

/// What the scanned page shows, line by line: number, text, quantity and unit.
const QStringList pageLines {
    QStringLiteral("13.02.0130 | Flagpole of aluminium, height 8 m | 3 | pcs"),
    QStringLiteral("13.02.0140 | Foundation for flagpole, concrete | 1.35 | m3"),
    QStringLiteral("13.02.0150 | Bicycle stand, galvanised steel | 24 | pcs"),
    QStringLiteral("13.02.0160 | Bench of oak, length 2.40 m | 6 | pcs"),
    QStringLiteral("13.02.0170 | Safety surface below climbing frame | 86.5 | m2"),
    QStringLiteral("13.02.0180 | Hornbeam hedge, planted | 112 | m"),
};

/// The last items of a chapter as "kvx show" gives them, in the form of pageLines.
QStringList lastLines(const QJsonObject &shown)
{
    const QJsonArray items = shown.value(QLatin1String("list")).toArray();
    QStringList lines;
    for (int i = qMax(0, items.size() - pageLines.size()); i < items.size(); ++i) {
        const QJsonObject item = items.at(i).toObject();
        QStringList fields;
        for (const char *key : { "number", "text", "quantity", "unit" })
            fields.append(item.value(QLatin1String(key)).toString());
        lines.append(fields.join(QLatin1String(" | ")));
    }
    return lines;
}

QJsonObject readObject(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                          : QJsonObject();
}

} // namespace

bool Story::lookIn()
{
    title(QStringLiteral("The office lets Carla look in"));
    QJsonObject result;
    if (!m_site.addUser(carla, QStringLiteral("Carla Ruiz"), QString()))
        return fail(m_site.error());
    if (!m_carla.start(m_site.kvx(), m_site.server(), m_site.account(carla)))
        return fail(m_carla.error());
    if (!m_office.start(m_site.kvx(), m_site.server(), m_site.administrator()))
        return fail(m_office.error());
    if (!must(m_carla, QStringLiteral("projects"), &result))
        return false;
    if (!result.value(QLatin1String("projects")).toArray().isEmpty())
        return fail(QStringLiteral("Carla sees projects without a role"));
    step(QStringLiteral("Carla"),
        QStringLiteral("is new: she has an account, but no role, and her list is empty"));

    if (!must(m_office, QStringLiteral("roles add %1 AllProjectReview=1").arg(role)))
        return false;
    QElapsedTimer timer;
    timer.start();
    if (!must(m_office, QStringLiteral("roles assign %1 %2").arg(role, carla)))
        return false;
    if (!m_carla.waitForEvent(QStringLiteral("rightsChanged")))
        return fail(QStringLiteral("Carla heard nothing of her role"));
    step(QStringLiteral("office"),
        QStringLiteral("makes a role that may read every project and change none, and gives it to "
                       "Carla"));
    step(QStringLiteral("Carla"),
        QStringLiteral("has the tender in her list %1 ms later").arg(timer.elapsed()));
    if (!must(m_carla, QStringLiteral("status ") + m_project, &result))
        return false;
    step(QStringLiteral("Carla"),
        QStringLiteral("opens it and reads the total, %1")
            .arg(result.value(QLatin1String("total")).toString()));
    const QJsonObject refused
        = m_carla.run(QStringLiteral("edit %1 %2 rate=1").arg(m_project, m_items.at(7)));
    if (refused.value(QLatin1String("exit")).toInt() == 0)
        return fail(QStringLiteral("Carla could change an item"));
    step(QStringLiteral("Carla"),
        QStringLiteral("tries to change a rate and is told: %1")
            .arg(refused.value(QLatin1String("error")).toString()));
    return true;
}

bool Story::shareTemplate()
{
    title(QStringLiteral("Anna shares a report template with the whole office"));
    m_ben.takeEvents();
    m_carla.takeEvents();
    QElapsedTimer timer;
    timer.start();
    if (!must(m_anna,
            QStringLiteral("templates upload %1 --name \"Price schedule\"")
                .arg(fileArgument("price-schedule.json"))))
        return false;
    step(QStringLiteral("Anna"),
        QStringLiteral("uploads \"Price schedule\", the layout of a printed price list"));
    for (const auto &[who, shell] : { std::pair(QStringLiteral("Ben"), &m_ben),
             std::pair(QStringLiteral("Carla"), &m_carla) }) {
        if (!shell->waitForEvent(QStringLiteral("templatesChanged")))
            return fail(QStringLiteral("%1 heard nothing of the template").arg(who));
        const qint64 heard = timer.elapsed();
        const QString copy = m_scratch.filePath(who + QLatin1String(".json"));
        if (!must(*shell,
                QStringLiteral("templates download \"Price schedule\" %1")
                    .arg(ShellProcess::quoted(copy))))
            return false;
        if (readObject(copy).isEmpty()
            || readObject(copy) != readObject(m_folder + QLatin1String("/price-schedule.json")))
            return fail(QStringLiteral("%1's template is not the one Anna shared").arg(who));
        step(who,
            QStringLiteral("is told of it within %1 ms and can print with the same layout")
                .arg(heard));
    }
    return true;
}

bool Story::readPage()
{
    title(QStringLiteral("A page on paper becomes items of the tender"));
    const QString table = m_scratch.filePath(QStringLiteral("page.tsv"));
    QJsonObject result;
    if (!recognise(table)
        || !must(m_ben,
            QStringLiteral("import %1 %2 --chapter %3")
                .arg(m_project, ShellProcess::quoted(table), chapter),
            &result))
        return false;
    const int items = result.value(QLatin1String("items")).toInt();
    if (items != pageLines.size())
        return fail(QStringLiteral("the page has %1 items, but %2 were read")
                        .arg(pageLines.size())
                        .arg(items));
    step(QStringLiteral("Ben"),
        QStringLiteral("adds its %1 lines to chapter %2 as new items").arg(items).arg(chapter));
    return pushItems(items);
}

bool Story::recognise(const QString &table)
{
    QElapsedTimer timer;
    timer.start();
    QJsonObject result;
    if (!must(m_ben,
            QStringLiteral("ocr %1 --language eng --export table -o %2")
                .arg(fileArgument("scanned-page.png"), ShellProcess::quoted(table)),
            &result))
        return false;
    const QJsonArray files = result.value(QLatin1String("files")).toArray();
    if (files.at(0).toObject().value(QLatin1String("pages")).toInt() != 1)
        return fail(QStringLiteral("the scanned page was not recognised"));
    step(QStringLiteral("Ben"),
        QStringLiteral("sends a scanned page of a bill of quantities; the server reads it (%1 s)")
            .arg(static_cast<double>(timer.elapsed()) / 1000, 0, 'f', 1));
    return true;
}

bool Story::pushItems(int items)
{
    QJsonObject shown;
    QJsonObject saved;
    if (!must(m_ben, QStringLiteral("save ") + m_project, &saved))
        return false;
    const int version = saved.value(QLatin1String("version")).toInt();
    step(QStringLiteral("Ben"), QStringLiteral("saves version %1").arg(version));
    for (const auto &[who, shell] : { std::pair(QStringLiteral("Anna"), &m_anna),
             std::pair(QStringLiteral("Carla"), &m_carla) }) {
        if (!must(*shell, QStringLiteral("wait %1 %2").arg(m_project).arg(version))
            || !must(*shell, QStringLiteral("show %1 %2").arg(m_project, chapter), &shown))
            return false;
        const QStringList lines = lastLines(shown);
        for (int i = 0; i < pageLines.size(); ++i) {
            if (lines.value(i) != pageLines.at(i))
                return fail(QStringLiteral("the page says \"%1\", but %2 has \"%3\"")
                                .arg(pageLines.at(i), who, lines.value(i)));
        }
        step(who,
            QStringLiteral("has the %1 items by push, line by line as the page has them")
                .arg(items));
    }
    return true;
}

bool Story::lookOut()
{
    title(QStringLiteral("Carla's visit ends"));
    m_carla.takeEvents();
    QElapsedTimer timer;
    timer.start();
    if (!must(m_office, QStringLiteral("roles unassign %1 %2").arg(role, carla)))
        return false;
    if (!m_carla.waitForEvent(QStringLiteral("projectClosed")))
        return fail(QStringLiteral("Carla's project stayed open"));
    step(QStringLiteral("office"), QStringLiteral("takes the role from her again"));
    step(QStringLiteral("Carla"),
        QStringLiteral("had the tender open; it closes on her screen %1 ms later")
            .arg(timer.elapsed()));
    const QJsonObject gone = m_carla.run(QStringLiteral("show ") + m_project);
    if (gone.value(QLatin1String("exit")).toInt() == 0)
        return fail(QStringLiteral("Carla could read the project without a role"));
    step(QStringLiteral("Carla"),
        QStringLiteral("asks for it once more and is told: %1")
            .arg(gone.value(QLatin1String("error")).toString()));
    return m_carla.stop() && m_office.stop();
}

} // namespace kvx::demo
