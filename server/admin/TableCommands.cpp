#include "admin/TableCommands.h"
#include "admin/AdminSession.h"
#include "admin/Listing.h"
#include "base/Config.h"
#include "base/JsonText.h"
#include "services/StoredBytes.h"
#include "services/Tables.h"
#include "store/BlobStore.h"
#include "store/TableStore.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <rapidjson/document.h>

namespace kvx::server {

namespace {

constexpr char usualRight[] = "ReadWriteRateLibrary";
constexpr std::size_t largestTable = std::size_t { 8 } << 20;

SharedTable tableOf(Db &db, const std::string &name)
{
    const auto table = TableStore(db).find(name);
    if (!table)
        throw CommandRefused("there is no table \"" + name + '"');
    return *table;
}

/// The right as it is stored.
std::string rightOf(const CommandArguments &arguments, const char *option)
{
    const std::string right = arguments.text(option);
    if (right.empty() || right == usualRight)
        return {};
    const bool known = std::any_of(rightNames.begin(), rightNames.end(),
        [&right](const RightName &name) { return right == name.key; });
    if (!known)
        throw CommandUsage('"' + right + "\" is not a permission of roles");
    return right;
}

int listTables(AdminSession &session, const CommandArguments &)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    Listing listing({ { "name", "Name" }, { "revision", "Revision" }, { "right", "Written with" },
        { "email", "Last by" }, { "modified", "Modified" }, { "bytes", "Size" } });
    for (const SharedTable &table : TableStore(session.db()).all()) {
        const auto writer = table.userId ? findUser(session.db(), *table.userId) : std::nullopt;
        listing.add(
            { table.name, table.revision, table.writeRight.empty() ? usualRight : table.writeRight,
                writer ? writer->email : "", Cell::time(table.at),
                Cell::bytes(table.blob.empty() ? 0 : BlobStore::size(session.db(), table.blob)) });
    }
    return session.done("tables", listing);
}

int addTable(AdminSession &session, const CommandArguments &arguments)
{
    const std::string name = arguments.text("table");
    if (!isTableName(name))
        throw CommandUsage('"' + name
            + "\" cannot name a table: a letter, then up to 63 letters, digits and \"_\"");
    AdminChange change(session);
    TableStore tables(change.db());
    if (tables.find(name))
        throw CommandRefused("there is a table \"" + name + "\" already");
    SharedTable table;
    table.name = name;
    table.writeRight = rightOf(arguments, "--right");
    table.at = wallTime();
    tables.add(table);
    change.audit(name, table.writeRight);
    change.commit();
    return session.done(
        "The table \"" + name + "\" is there, and empty.", ",\"name\":" + jsonText(name));
}

int setTableRight(AdminSession &session, const CommandArguments &arguments)
{
    const std::string right = rightOf(arguments, "right");
    AdminChange change(session);
    const SharedTable table = tableOf(change.db(), arguments.text("table"));
    TableStore(change.db()).setWriteRight(table.name, right);
    change.audit(table.name, right);
    change.commit();
    const std::string shown = right.empty() ? usualRight : right;
    return session.done("The table \"" + table.name + "\" is written with " + shown + '.',
        ",\"name\":" + jsonText(table.name) + ",\"right\":" + jsonText(shown));
}

int exportTable(AdminSession &session, const CommandArguments &arguments)
{
    const Transaction snapshot(session.db(), Transaction::Kind::Read);
    const SharedTable table = tableOf(session.db(), arguments.text("table"));
    const std::string data = table.blob.empty() ? "{}" : loadBytes(session.config(), table.blob);
    return session.done(data,
        ",\"name\":" + jsonText(table.name) + ",\"revision\":" + std::to_string(table.revision)
            + ",\"tabledata\":" + data);
}

/// The file's object, or that of standard input ("-").
std::string readTable(const std::string &path)
{
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file)
            throw CommandRefused(path + " cannot be read");
    }
    std::istream &input = path == "-" ? std::cin : file;
    std::string text;
    char buffer[64 * 1024];
    while (input.read(buffer, sizeof buffer), input.gcount() > 0) {
        text.append(buffer, static_cast<std::size_t>(input.gcount()));
        if (text.size() > largestTable)
            throw CommandRefused(path + " is larger than 8 MiB");
    }
    rapidjson::Document data;
    constexpr unsigned flags
        = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
    data.Parse<flags>(text.data(), text.size());
    if (data.HasParseError())
        throw CommandRefused(
            path + " is not JSON, from byte " + std::to_string(data.GetErrorOffset()));
    if (!data.IsObject())
        throw CommandRefused(path + " does not hold one JSON object");
    return tableData(data);
}

int importTable(AdminSession &session, const CommandArguments &arguments)
{
    const std::string data = readTable(arguments.text("file"));
    const auto stored = storeBytes(session.config(), data);
    AdminChange change(session);
    const SharedTable table = tableOf(change.db(), arguments.text("table"));
    BlobStore(session.config().data)
        .record(change.db(), stored->path, stored->sha256, stored->size, change.now());
    const std::int64_t revision
        = TableStore(change.db()).write(table.name, stored->sha256, {}, wallTime());
    change.audit(table.name, std::to_string(revision));
    change.commit();
    return session.done(
        "The table \"" + table.name + "\" has revision " + std::to_string(revision) + '.',
        ",\"name\":" + jsonText(table.name) + ",\"revision\":" + std::to_string(revision));
}

const CommandOption table { "table", "its name" };

} // namespace

const AdminCommandTable tableCommands = {
    { "table", "list", "list the shared tables", {}, listTables },
    { "table", "add", "make an empty table",
        { table, { "--right", "the permission of roles that may write it" } }, addTable },
    { "table", "export", "print a table's data as JSON", { table }, exportTable },
    { "table", "import", "replace a table's data",
        { table, { "file", "a file with one JSON object, or - for standard input" } },
        importTable },
    { "table", "rights", "say which permission of roles writes a table",
        { table, { "right", "such as ReadWriteBQLibrary" } }, setTableRight },
};

} // namespace kvx::server
