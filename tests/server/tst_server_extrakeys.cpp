#include "Replay.h"

#include "support/Watchdog.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <rapidjson/pointer.h>
#include <set>

// Whatever a client adds to an object of its request (the creator, a version, an owner, a right):
// the answer and the store are those of the request without it.

using namespace kvx::test;

namespace {

/// The keys and columns of the server's own records, each with what somebody would like it to be.
const std::map<std::string, std::string> &wishes()
{
    static const std::map<std::string, std::string> all {
        { "id", "1" },
        { "ID", "1" },
        { "userId", "1" },
        { "user_id", "1" },
        { "UserID", "1" },
        { "owner", "\"ben@example.com\"" },
        { "owner_id", "1" },
        { "Owner", "\"ben@example.com\"" },
        { "creator", "\"ben@example.com\"" },
        { "creator_id", "1" },
        { "CreatorName", "\"Ben Ito\"" },
        { "CreatorEmail", "\"ben@example.com\"" },
        { "CreateDate", "\"2001-01-01 00:00\"" },
        { "createDate", "\"2001-01-01 00:00:00\"" },
        { "created", "1" },
        { "LastEditorName", "\"Ben Ito\"" },
        { "LastEditorEmail", "\"ben@example.com\"" },
        { "editor_id", "1" },
        { "LastModifyDate", "\"2001-01-01 00:00\"" },
        { "lastModifyDate", "\"2001-01-01 00:00:00\"" },
        { "modified", "1" },
        { "LogVersion", "99" },
        { "log_version", "99" },
        { "version", "99" },
        { "Revision", "1" },
        { "revision", "1" },
        { "Amount", "\"1.00\"" },
        { "ProjectState", "99" },
        { "state", "99" },
        { "BidStatus", "7" },
        { "bid_status", "7" },
        { "Type", "\"BQLibrary\"" },
        { "kind", "\"BQLibrary\"" },
        { "Description", "\"Another name\"" },
        { "AdditionalInfo", "{\"Group\":\"x\"}" },
        { "info", "\"{}\"" },
        { "AddendumProjectGUID", "\"{4B1D0C52-7E61-4C1F-9F0A-2D7B8A3C5E19}\"" },
        { "users", "[{\"Email\":\"ben@example.com\",\"Permission\":[{\"ProjectRW\":9}]}]" },
        { "userperms", "[{\"Email\":\"ben@example.com\",\"ProjectRW\":9}]" },
        { "Permission", "[{\"ProjectRW\":9}]" },
        { "ProjectRW", "9" },
        { "Money", "9" },
        { "Addendum", "9" },
        { "Report", "9" },
        { "rw", "9" },
        { "Administrator", "1" },
        { "administrator", "1" },
        { "AllProjectReadWrite", "1" },
        { "UploadReportSetting", "1" },
        { "Role", "{\"Administrator\":1}" },
        { "Roles", "[]" },
        { "RoleID", "1" },
        { "UserProductVersion", "3" },
        { "product_version", "3" },
        { "password", "\"chosen\"" },
        { "disabled", "false" },
        { "token", "\"chosen\"" },
        { "kvxsid", "\"chosen\"" },
        { "session", "1" },
        { "session_id", "1" },
        { "device", "\"desk\"" },
        { "address", "\"10.0.0.1\"" },
        { "lock_session", "1" },
        { "lock_gen", "99" },
        { "Lock", "1" },
        { "expires", "\"2099-01-01 00:00:00\"" },
        { "HolderEmail", "\"ben@example.com\"" },
        { "LockedEmail", "\"ben@example.com\"" },
        { "State", "1" },
        { "MinID", "1" },
        { "MaxID", "2147483647" },
        { "next_item", "1" },
        { "templateID", "\"chosen\"" },
        { "deleted_at", "1" },
        { "removed_at", "1" },
        { "write_right", "\"none\"" },
        { "blob", "\"00\"" },
        { "sha256", "\"00\"" },
        { "size", "0" },
        { "Chain", "\"00\"" },
        { "Epoch", "\"x\"" },
        { "statuscode", "1" },
        { "requestId", "\"chosen\"" },
        { "__proto__", "{}" },
        { "", "\"x\"" },
    };
    return all;
}

/// Times, dates, random names and digests differ from one run to the next; a project's GUID does
/// not.
std::string withoutChance(const std::string &text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t end = i;
        bool colon = false;
        for (; end < text.size(); ++end) {
            const char c = text[end];
            if (std::isxdigit(static_cast<unsigned char>(c)) == 0 && c != '-' && c != ':')
                break;
            colon = colon || c == ':';
        }
        const bool guid = i > 0 && text[i - 1] == '{';
        if (end - i >= (colon ? 5 : 10) && !guid)
            result += '#';
        else
            result += text.substr(i, std::max<std::size_t>(1, end - i));
        i = std::max(end, i + 1);
    }
    return result;
}

/// What is stored as the client sent it, whatever it holds.
bool isContent(const std::string &place)
{
    return place.find("/AdditionalInfo") != std::string::npos
        || place.find("/tabledata") != std::string::npos;
}

/// The keys that mean something in a service's requests, by place.
std::map<std::string, std::set<std::string>> knownKeys(const std::string &service)
{
    std::map<std::string, std::set<std::string>> known;
    const std::vector<Exchange> all
        = service.find('/') == std::string::npos ? allExchanges() : exchangesOf(service);
    for (const Exchange &exchange : all) {
        if (exchange.service != service)
            continue;
        for (const std::string &place : objectsIn(exchange["request"])) {
            const auto *object
                = rapidjson::Pointer(place.c_str(), place.size()).Get(exchange["request"]);
            for (const auto &member : object->GetObject())
                known[anyElement(place)].insert(member.name.GetString());
        }
    }
    return known;
}

struct Result {
    int status = 0;
    std::string store;
};

Result send(Replay &replay, const rapidjson::Document &request)
{
    Result result;
    result.status = replay.ask(request).status();
    result.store = withoutChance(replay.store().digest());
    replay.putBack();
    return result;
}

} // namespace

TEST(ExtraKeys, InAnyObjectOfARequestChangeNothing)
{
    const bool everything = std::getenv("KVX_TEST_LONG") != nullptr;
    Watchdog::allow(everything ? 500 : 200);
    std::set<std::string> done;
    int cases = 0;
    int keys = 0;
    for (const Exchange &exchange : exchangesForReplay()) {
        SCOPED_TRACE(exchange.service + ": " + exchange.title);
        Replay replay(exchange);
        auto known = knownKeys(exchange.service);
        const Result plain = send(replay, replay.request());
        for (const std::string &place : objectsIn(replay.request())) {
            if (isContent(place) || !done.insert(exchange.service + anyElement(place)).second)
                continue;
            SCOPED_TRACE("in " + place);
            rapidjson::Document all = replay.request();
            const auto add = [&](rapidjson::Document &request, const std::string &key,
                                 const std::string &value) {
                rapidjson::Document parsed = parsedJson("[" + value + "]");
                auto *object = rapidjson::Pointer(place.c_str(), place.size()).Get(request);
                object->AddMember(rapidjson::Value(key.c_str(), request.GetAllocator()),
                    rapidjson::Value(parsed[0], request.GetAllocator()), request.GetAllocator());
            };
            for (const auto &[key, value] : wishes()) {
                if (known[anyElement(place)].count(key) > 0)
                    continue;
                add(all, key, value);
                ++keys;
                if (!everything)
                    continue;
                rapidjson::Document one = replay.request();
                add(one, key, value);
                const Result result = send(replay, one);
                EXPECT_EQ(result.status, plain.status) << key;
                EXPECT_TRUE(result.store == plain.store) << key << " changed something";
                ++cases;
            }
            const Result result = send(replay, all);
            EXPECT_EQ(result.status, plain.status);
            EXPECT_EQ(result.store, plain.store);
            ++cases;
        }
    }
    std::printf("%d keys in %zu objects, %d requests\n", keys, done.size(), cases);
    EXPECT_GT(keys, 4000);
}
