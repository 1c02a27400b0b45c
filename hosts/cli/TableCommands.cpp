#include "cli/Commands.h"
#include "cli/JsonFile.h"

#include <CLI/CLI.hpp>
#include <KVXCollaboration/KVXCWCommon.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCommon/IKVXSimpleTable.h>
#include <KVXNetwork/KVXNetwork.h>
#include <QJsonArray>
#include <algorithm>
#include <memory>

namespace kvx::cli {

namespace {

struct Arguments {
    std::string table;
    std::string file;
};

QString text(const std::string &value)
{
    return QString::fromStdString(value);
}

/// The manager judges these by the exchange alone; what was wrong is known to the transport.
int refusedExchange(Context &context)
{
    return context.output.failed(Refused, KVXNetwork::getInstance()->lastError());
}

QStringList cells(const QJsonValue &row)
{
    return row.toVariant().toStringList();
}

/// Data of the table as the server has it now. False after the error was reported.
bool fetch(Context &context, const Arguments &arguments, QJsonObject &data)
{
    const IKVXSimpleTable *table
        = KVXCollaborator::getInstance()->common()->getTable(text(arguments.table));
    if (!table) {
        refusedExchange(context);
        return false;
    }
    data = table->toJson().value(QLatin1String("tabledata")).toObject();
    return true;
}

int showTable(Context &context, const Arguments &arguments)
{
    QJsonObject data;
    if (!fetch(context, arguments, data))
        return Refused;
    QVector<QStringList> rows;
    const QJsonArray array = data.value(QLatin1String("rows")).toArray();
    for (const QJsonValue &row : array)
        rows.append(cells(row));
    const QStringList columns = cells(data.value(QLatin1String("columns")));
    if (!columns.isEmpty())
        context.output.table(columns, rows);
    return context.output.done(columns.isEmpty()
            ? QStringLiteral("The table \"%1\" is empty.").arg(text(arguments.table))
            : QString(),
        { { QStringLiteral("table"), data } });
}

int downloadTable(Context &context, const Arguments &arguments)
{
    QJsonObject data;
    if (!fetch(context, arguments, data))
        return Refused;
    QString error;
    if (!writeJsonFile(text(arguments.file), data, error))
        return context.output.failed(Refused, error);
    return context.output.done(QStringLiteral("Stored as %1.").arg(text(arguments.file)));
}

bool isTable(const QJsonObject &data)
{
    const QJsonArray rows = data.value(QLatin1String("rows")).toArray();
    return data.value(QLatin1String("columns")).isArray()
        && data.value(QLatin1String("rows")).isArray()
        && std::all_of(
            rows.begin(), rows.end(), [](const QJsonValue &row) { return row.isArray(); });
}

/// A file that was downloaded carries the revision it was made from: when somebody wrote the table
/// since, the server refuses and nothing is overwritten.
int uploadTable(Context &context, const Arguments &arguments)
{
    QJsonObject data;
    QString error;
    if (!readJsonFile(text(arguments.file), data, error))
        return context.output.failed(Refused, error);
    if (!isTable(data))
        return context.output.failed(Refused,
            QStringLiteral("%1: a table is {\"columns\": [text, …], \"rows\": [[text, …], …]}")
                .arg(text(arguments.file)));
    std::unique_ptr<IKVXSimpleTable> table(IKVXSimpleTable::fromJson({
        { QStringLiteral("tablename"), text(arguments.table) },
        { QStringLiteral("tabledata"), data },
    }));
    if (!KVXCollaborator::getInstance()->common()->updateTable(table.get()))
        return refusedExchange(context);
    static_cast<void>(table.release()); // the manager's now
    return context.output.done(
        QStringLiteral("The table \"%1\" was replaced.").arg(text(arguments.table)));
}

using TableAction = int (*)(Context &, const Arguments &);

} // namespace

void addTableCommands(CLI::App &app, Action &action)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App *tables = app.add_subcommand("tables", "Tables that all users share");
    tables->require_subcommand(1);
    const auto add = [&](const char *name, const char *help, TableAction run) {
        CLI::App *command = tables->add_subcommand(name, help);
        command->add_option("table", arguments->table, "Its name")->required();
        command->callback([&action, arguments, run] {
            action = [arguments, run](Context &context) { return run(context, *arguments); };
        });
        return command;
    };
    add("show", "Show a table", showTable);
    add("download", "Fetch a table as JSON", downloadTable)
        ->add_option("file", arguments->file, "Local file to write")
        ->required();
    add("upload", "Replace a table", uploadTable)
        ->add_option("file", arguments->file, "JSON file, as \"download\" writes it")
        ->required();
}

} // namespace kvx::cli
