#include "services/Tables.h"
#include "base/Config.h"
#include "services/Access.h"
#include "services/StoredBytes.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/TableStore.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <limits>

namespace kvx::server {

namespace {

constexpr char revisionKey[] = "revision";

std::string tableName(const JsonObject &object)
{
    const std::string name = object.text("tablename");
    if (!isTableName(name))
        throw BadRequest("\"tablename\" must be a letter followed by up to 63 letters, digits and "
                         "\"_\", and not one of the reply's own keys");
    return name;
}

/// The stored data with its revision in front.
std::string withRevision(const std::string &data, std::int64_t revision)
{
    const std::string head = std::string("{\"") + revisionKey + "\":" + std::to_string(revision);
    return data == "{}" ? head + '}' : head + ',' + data.substr(1);
}

Reply getTable(Call &call)
{
    const std::string name = tableName(call.request());
    const auto table = TableStore(call.db()).find(name);
    if (!table)
        return Reply::ok().setJson(name.c_str(), "{}");
    const std::string data = table->blob.empty() ? "{}" : loadBytes(call.config(), table->blob);
    return Reply::ok().setJson(name.c_str(), withRevision(data, table->revision));
}

/// What stands against writing that table. An administrator's first writing makes it.
std::optional<Reply> refuseWriting(
    Call &call, const std::string &name, const std::optional<SharedTable> &table)
{
    if (!table && !isAdministrator(call))
        return Reply::refused(StatusCode::NoSuchTable, { name });
    if (!mayWriteTable(call.caller().rights, table ? table->writeRight : std::string()))
        return Reply::refused(StatusCode::NotAllowed);
    return std::nullopt;
}

Reply keepTable(Call &call, const ReceivedFile &bytes)
{
    const JsonObject wanted = call.request().object("Table");
    const std::string name = tableName(wanted);
    TableStore tables(call.db());
    auto table = tables.find(name);
    if (const auto refusal = refuseWriting(call, name, table))
        return *refusal;
    if (!table) {
        tables.add({ name, {}, 0, {}, call.caller().userId, wallTime() });
        table = tables.find(name);
    }
    if (table->blob == bytes.sha256)
        return Reply::ok().set(revisionKey, table->revision); // the reply was lost
    const auto known
        = wanted.object("tabledata")
              .optionalInteger(revisionKey, 0, std::numeric_limits<std::int64_t>::max());
    if (known && *known != table->revision)
        return Reply::refused(StatusCode::TableChanged);
    BlobStore(call.config().data)
        .record(call.db(), bytes.path, bytes.sha256, bytes.size, call.now());
    const std::int64_t revision
        = tables.write(name, bytes.sha256, call.caller().userId, wallTime());
    call.audit(static_cast<int>(StatusCode::Ok), name, std::to_string(revision));
    return Reply::ok().set(revisionKey, revision);
}

Reply updateTable(Call &call)
{
    const JsonObject wanted = call.request().object("Table");
    const std::string name = tableName(wanted);
    if (const auto refusal = refuseWriting(call, name, TableStore(call.db()).find(name)))
        return *refusal;
    return Reply::after(
        [&config = call.config(), data = tableData(wanted.object("tabledata").json())] {
            return storeThen(config, data, keepTable);
        });
}

} // namespace

bool isTableName(const std::string &name)
{
    static const std::array<const char *, 5> replyKeys
        = { "statuscode", "error", "message", "data", "requestId" };
    const auto isLetter = [](unsigned char c) { return c < 128 && std::isalpha(c); };
    const auto isPart
        = [&](unsigned char c) { return isLetter(c) || (c >= '0' && c <= '9') || c == '_'; };
    return !name.empty() && name.size() <= 64 && isLetter(static_cast<unsigned char>(name[0]))
        && std::all_of(name.begin(), name.end(), isPart)
        && std::find(replyKeys.begin(), replyKeys.end(), name) == replyKeys.end();
}

std::string tableData(const Json &data)
{
    rapidjson::Document copy;
    copy.CopyFrom(data, copy.GetAllocator());
    copy.RemoveMember(revisionKey);
    return compactJson(copy);
}

bool mayWriteTable(const RoleRights &rights, const std::string &writeRight)
{
    if (rights.administrator)
        return true;
    if (writeRight.empty())
        return rights.readWriteRateLibrary;
    const auto named = std::find_if(rightNames.begin(), rightNames.end(),
        [&](const RightName &name) { return writeRight == name.key; });
    return named != rightNames.end() && rights.*named->right;
}

const ServiceTable tableServices = {
    { "gettable", getTable, NeedsUser | NamesCaller | JudgedByHttp },
    { "updatetable", updateTable, NeedsUser | NamesCaller | Writes | LargeBody | JudgedByHttp },
};

} // namespace kvx::server
