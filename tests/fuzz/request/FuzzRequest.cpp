#include "../JsonMutator.h"
#include "../Require.h"
#include "StoreSnapshot.h"
#include "base/Digest.h"
#include "base/Text.h"
#include "server/ServiceHarness.h"
#include "services/StatusCode.h"
#include "store/StoreCheck.h"
#include "store/ThrottleStore.h"

#include <algorithm>
#include <fstream>
#include <future>
#include <map>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

using namespace kvx::test;
using namespace kvx::server;

namespace {

constexpr Time tenYears = Time { 3650 } * 24 * 3'600'000;

/// Anna and Ben share a saved project, Carla is an administrator; a template, a table, a lock.
class Site {
public:
    Site()
        : m_harness([](Config &config) {
            config.lockHold = 1;
            config.sessionIdle = config.sessionAbsolute = tenYears;
            config.ocrWorkers = 0; // no process for each input
        })
    {
        const char *const users[][2] = { { "anna@example.com", "Everything" },
            { "ben@example.com", "Estimator" }, { "carla@example.com", "Administrator" } };
        for (const auto &[email, role] : users)
            m_sessions.emplace(email, m_harness.join(email, role));
        const Session &anna = m_sessions.at("anna@example.com");
        const std::string guid = "{11111111-1111-1111-1111-111111111111}";
        anna.ask(newProject(anna, guid, "School"));
        anna.upload(guid + ".KVX", "project file");
        permit(anna, guid, { { "ben@example.com", "1,1,1,1" } });
        save(anna, guid, -1);
        // Hashing a password takes longer than a hundred other requests: no tries are left.
        while (beginLoginTry(m_harness.db(), wallTime(), "anna@example.com", "127.0.0.1")) { }
        for (int i = 0; i < 40; ++i)
            beginLoginTry(
                m_harness.db(), wallTime(), std::to_string(i) + "@example.com", "127.0.0.1");
        m_snapshot = std::make_unique<StoreSnapshot>(m_harness.folder());
    }

    void ask(const rapidjson::Value &request) { judge(reply(request, compactJson(request))); }
    void askText(const std::string &text) { judge(reply({}, text)); }

    void goBack()
    {
        m_harness.pass(1000); // a new second for whatever is counted by it
        if (!m_snapshot->isChanged())
            return;
        StoreCheck(m_harness.db(), m_harness.folder(), [](const std::string &fault) {
            require(false, fault.c_str());
        }).run(false);
        m_snapshot->restore();
    }

private:
    const Session *callerOf(const rapidjson::Value &request) const
    {
        std::string email = "anna@example.com";
        if (request.IsObject() && request.HasMember("Email") && request["Email"].IsString())
            email = request["Email"].GetString();
        const auto found = m_sessions.find(email);
        return email.empty()            ? nullptr
            : found == m_sessions.end() ? &m_sessions.at("anna@example.com")
                                        : &found->second;
    }

    static std::string textOf(const rapidjson::Value &request, const char *key)
    {
        const bool there = request.IsObject() && request.HasMember(key) && request[key].IsString();
        return there ? std::string(request[key].GetString(), request[key].GetStringLength()) : "";
    }

    static std::pair<const Endpoint *, const Service *> find(const std::string &name)
    {
        for (const Endpoint &endpoint : allEndpoints()) {
            for (const ServiceTable *table : endpoint.tables) {
                for (const Service &service : *table) {
                    if (name == service.name)
                        return { &endpoint, &service };
                }
            }
        }
        return { &allEndpoints().front(), nullptr };
    }

    Reply wait(
        void (Dispatcher::*step)(const ExchangePtr &, Completion), const ExchangePtr &exchange)
    {
        std::promise<Reply> promise;
        (m_harness.dispatcher().*step)(
            exchange, [&promise](Reply reply) { promise.set_value(std::move(reply)); });
        return promise.get_future().get();
    }

    Reply reply(const rapidjson::Value &request, const std::string &text)
    {
        const auto [endpoint, service] = find(textOf(request, "service"));
        const auto exchange = std::make_shared<Exchange>();
        exchange->endpoint = endpoint;
        exchange->body = text;
        exchange->address = "127.0.0.1";
        if (const Session *caller = callerOf(request)) {
            exchange->token = caller->token;
            exchange->connectionId = caller->connection;
        }
        if (!service || !service->beforeUpload)
            return wait(&Dispatcher::dispatch, exchange);
        exchange->multipart = true;
        Reply decided = wait(&Dispatcher::beginUpload, exchange);
        if (!decided.isOk())
            return decided;
        exchange->file = received(textOf(request, "FileName"), textOf(request, "Content"));
        return wait(&Dispatcher::finishUpload, exchange);
    }

    /// The bytes of an upload; of a change log's name its archive.
    std::shared_ptr<const ReceivedFile> received(
        const std::string &name, const std::string &content)
    {
        const bool isLog = name.find("_log") != std::string::npos
            && name.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
        const std::string bytes = isLog && isValidUtf8(name) ? logArchive(name, content) : content;
        const std::string path = m_harness.folder() + "/tmp/" + newUuid();
        std::ofstream(path, std::ios::binary) << bytes;
        return std::make_shared<ReceivedFile>(
            path, static_cast<std::int64_t>(bytes.size()), sha256(bytes), md5(bytes));
    }

    static void judge(const Reply &reply)
    {
        const Answer answer(reply); // one JSON object
        const auto codes = allStatusCodes();
        const int status = answer.status();
        require(std::any_of(codes.begin(), codes.end(),
                    [status](StatusCode code) { return static_cast<int>(code) == status; }),
            "the status code is a known one");
        require(status != static_cast<int>(StatusCode::Failed), "nothing broke");
        require(status == 1 || answer.has("message"), "a refusal says why");
    }

    ServiceHarness m_harness;
    std::map<std::string, Session> m_sessions;
    std::unique_ptr<StoreSnapshot> m_snapshot;
};

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(
    std::uint8_t *data, std::size_t size, std::size_t maxSize, unsigned int seed)
{
    return mutateJson(data, size, maxSize, seed);
}

/// One request, or an array of them one after the other, as users of a real store: each gets a
/// reply, nothing breaks, and the store is in order afterwards. "Email" says who asks; an upload's
/// bytes stand under "Content".
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static auto *const site = new Site; // its threads end with the process
    const std::string text(reinterpret_cast<const char *>(data), size);
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(text.data(), text.size());
    if (document.HasParseError()) {
        site->askText(text);
    } else if (document.IsArray()) {
        for (const auto &request : document.GetArray())
            site->ask(request);
    } else {
        site->ask(document);
    }
    site->goBack();
    return 0;
}
