#include "cli/UseProject.h"
#include "content/Schema.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWIDManager.h>
#include <QJsonArray>
#include <memory>

namespace kvx::cli {

namespace {

struct Arguments {
    std::string project;
    std::string file;
    std::string item;
    std::string chapter;
    std::vector<std::string> values;
};

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

QString stateText(int state)
{
    switch (state) {
    case KVXItemCheckState::CheckedOutByMe:
        return QStringLiteral("mine");
    case KVXItemCheckState::CheckedOutByOther:
        return QStringLiteral("held");
    default:
        return QString();
    }
}

int importFile(Context &context, const Arguments &arguments)
{
    const content::ImportResult imported = content::importBill(text(arguments.file));
    if (!imported.bill)
        return context.output.failed(Refused, imported.error);
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    std::optional<int> under;
    if (!arguments.chapter.empty()) {
        under = project->bill().chapterId(text(arguments.chapter));
        if (!under)
            return context.output.failed(
                Refused, QStringLiteral("There is no chapter %1.").arg(text(arguments.chapter)));
        for (const content::Bill::Item &item : imported.bill->items) {
            if (project->bill().itemByNumber(item.number))
                return context.output.failed(Refused,
                    QStringLiteral("The project has an item %1 already.").arg(item.number));
        }
    }
    std::vector<int> chapters;
    std::vector<int> items;
    const bool kept = project->database().edit([&](sqlite3 *connection) {
        return content::BillStore(connection)
            .append(
                *imported.bill, [project] { return project->newId(); }, &chapters, &items, under);
    });
    if (!kept)
        return context.output.failed(Refused, project->database().errorText());
    project->ids()->registerCreatedItems(
        content::ChapterModule, QList<int>(chapters.begin(), chapters.end()));
    project->ids()->registerCreatedItems(
        content::ItemModule, QList<int>(items.begin(), items.end()));
    return context.output.done(
        QStringLiteral("%1 chapters and %2 items were added; save to publish them.")
            .arg(chapters.size())
            .arg(items.size()),
        { { QStringLiteral("chapters"), static_cast<int>(chapters.size()) },
            { QStringLiteral("items"), static_cast<int>(items.size()) } });
}

int show(Context &context, const Arguments &arguments)
{
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    QVector<QStringList> rows;
    QJsonArray array;
    for (const content::StoredItem &item : project->bill().items(text(arguments.chapter))) {
        KVXItemCheckState holder;
        const int state = project->ids()->checkState(content::ItemModule, item.id, holder);
        const QString rate = item.rate ? content::formatDecimal(*item.rate, 2) : QString();
        const auto cents
            = item.rate ? content::amountInCents(item.quantity, *item.rate) : std::nullopt;
        const QString amount = cents ? content::formatCents(*cents) : QString();
        const QString quantity = content::formatDecimal(item.quantity);
        rows.append({ item.number, item.shortText.left(48), quantity, item.unit, rate, amount,
            state == KVXItemCheckState::CheckedOutByOther ? holder.name : stateText(state) });
        array.append(QJsonObject { { QStringLiteral("id"), item.id },
            { QStringLiteral("number"), item.number }, { QStringLiteral("text"), item.shortText },
            { QStringLiteral("quantity"), quantity }, { QStringLiteral("unit"), item.unit },
            { QStringLiteral("rate"), rate }, { QStringLiteral("amount"), amount },
            { QStringLiteral("state"), state }, { QStringLiteral("holder"), holder.email } });
    }
    context.output.table(
        { QStringLiteral("NUMBER"), QStringLiteral("TEXT"), QStringLiteral("QUANTITY"),
            QStringLiteral("UNIT"), QStringLiteral("RATE"), QStringLiteral("AMOUNT"),
            QStringLiteral("CHECKED OUT") },
        rows);
    return context.output.done(QString(), { { QStringLiteral("list"), array } });
}

/// "rate=12.50", "quantity=3", "unit=m", "text=…", "longtext=…".
bool readChange(const std::vector<std::string> &values, content::ItemChange &change, QString &error)
{
    for (const std::string &value : values) {
        const QString assignment = text(value);
        const QString key = assignment.section(QLatin1Char('='), 0, 0);
        const QString given = assignment.section(QLatin1Char('='), 1);
        if (key == QLatin1String("rate"))
            change.rate = content::parseDecimal(given);
        else if (key == QLatin1String("quantity"))
            change.quantity = content::parseDecimal(given);
        else if (key == QLatin1String("unit"))
            change.unit = given;
        else if (key == QLatin1String("text"))
            change.shortText = given;
        else if (key == QLatin1String("longtext"))
            change.longText = given;
        else
            error
                = QStringLiteral("\"%1\" is not one of rate=, quantity=, unit=, text=, longtext=.")
                      .arg(assignment);
        if ((key == QLatin1String("rate") && !change.rate)
            || (key == QLatin1String("quantity") && !change.quantity))
            error
                = QStringLiteral("\"%1\" is not a number with at most three decimals.").arg(given);
    }
    return error.isEmpty();
}

int editItem(Context &context, const Arguments &arguments)
{
    content::ItemChange change;
    QString error;
    if (!readChange(arguments.values, change, error))
        return context.output.failed(Usage, error);
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    const QList<int> ids = findItems(context, *project, { arguments.item });
    if (ids.isEmpty())
        return Refused;
    KVXItemCheckState holder;
    if (project->ids()->checkState(content::ItemModule, ids.first(), holder)
            != KVXItemCheckState::CheckedOutByMe
        && !project->ids()->checkOut(content::ItemModule, ids.first(), holder))
        return context.output.failed(Refused,
            mayOnlyRead(*project) ? QStringLiteral("You may read this project, but not change it.")
                : holder.name.isEmpty()
                ? QStringLiteral("Item %1 could not be checked out.").arg(text(arguments.item))
                : QStringLiteral("Item %1 is checked out by %2.")
                      .arg(text(arguments.item), holder.name),
            { { QStringLiteral("holder"), holder.email } });
    const bool kept = project->database().edit([&](sqlite3 *connection) {
        return content::BillStore(connection).change(ids.first(), change);
    });
    if (!kept)
        return context.output.failed(Refused, project->database().errorText());
    return context.output.done(
        QStringLiteral("Item %1 is changed; save to publish it.").arg(text(arguments.item)));
}

int addItem(Context &context, const Arguments &arguments)
{
    content::ItemChange values;
    QString error;
    if (!readChange(arguments.values, values, error))
        return context.output.failed(Usage, error);
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    content::StoredItem item;
    item.number = text(arguments.item);
    item.shortText = values.shortText.value_or(QString());
    item.longText = values.longText.value_or(QString());
    item.unit = values.unit.value_or(QString());
    item.quantity = values.quantity.value_or(1000);
    item.rate = values.rate;
    item.id = project->newId();
    if (item.id < 0)
        return context.output.failed(Refused, QStringLiteral("The server gave no item number."));
    const bool kept = project->database().edit([&](sqlite3 *connection) {
        return content::BillStore(connection).addItem(item.id, text(arguments.chapter), item);
    });
    if (!kept)
        return context.output.failed(Refused,
            QStringLiteral("The item was not added: %1").arg(project->database().errorText()));
    project->ids()->registerCreatedItems(content::ItemModule, { item.id });
    return context.output.done(
        QStringLiteral("Item %1 is added; save to publish it.").arg(item.number),
        { { QStringLiteral("id"), item.id } });
}

int status(Context &context, const Arguments &arguments)
{
    int refusal = Refused;
    host::OpenProject *project = useProject(context, arguments.project, refusal);
    if (!project)
        return refusal;
    const QString digest = QString::fromLatin1(project->database().contentDigest().toHex());
    const QString total = content::formatCents(project->bill().totalInCents());
    const int version = project->database().logVersion();
    const int pending = project->database().pendingCount();
    const int items = project->bill().itemCount();
    return context.output.done(
        QStringLiteral("Version %1, %2 items, total %3, %4 unsaved edits, content %5…")
            .arg(QString::number(version), QString::number(items), total, QString::number(pending),
                digest.left(12)),
        { { QStringLiteral("version"), version }, { QStringLiteral("items"), items },
            { QStringLiteral("total"), total }, { QStringLiteral("pending"), pending },
            { QStringLiteral("digest"), digest } });
}

using ContentAction = int (*)(Context &, const Arguments &);

} // namespace

void addContentCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    const auto add = [&](const char *name, const char *help, ContentAction run) {
        CLI::App *command = app.add_subcommand(name, help);
        command->add_option("project", arguments->project, "Name or GUID")->required();
        command->callback([&action, arguments, run] {
            action = [arguments, run](Context &context) { return run(context, *arguments); };
        });
        return command;
    };

    CLI::App *import = add("import",
        "Add a bill of quantities (CSV, GAEB X83 or X84) or recognised pages (TSV)", importFile);
    import->add_option("file", arguments->file, "File to read")->required();
    import->add_option("--chapter", arguments->chapter,
        "Chapter of the project that it goes into; then its item numbers must be new");
    add("show", "Show the items of a project", show)
        ->add_option("chapter", arguments->chapter, "Only this chapter and those below it");
    add("status", "Show version, total and unsaved edits", status);
    CLI::App *edit = add("edit", "Change an item; checks it out first", editItem);
    edit->add_option("item", arguments->item, "Item number, or #row")->required();
    edit->add_option("values", arguments->values, "rate=, quantity=, unit=, text=, longtext=")
        ->required();
    CLI::App *create = add("add", "Add an item", addItem);
    create->add_option("item", arguments->item, "Its number")->required();
    create->add_option("values", arguments->values, "rate=, quantity=, unit=, text=, longtext=");
    create->add_option("--chapter", arguments->chapter, "Number of the chapter it belongs to");
}

} // namespace kvx::cli
