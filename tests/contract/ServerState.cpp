#include "ServerState.h"

#include "base/Config.h"
#include "base/Digest.h"
#include "base/Text.h"
#include "base/JsonText.h"
#include "services/Password.h"
#include "services/ServiceTable.h"
#include "services/StoredBytes.h"
#include "store/BlobStore.h"
#include "store/MetaStore.h"
#include "store/OcrStore.h"
#include "store/ResourceStore.h"
#include "store/TemplateStore.h"
#include "store/UserStore.h"

#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <numeric>

namespace kvx::test {

using namespace kvx::server;

namespace {

using Step = std::vector<std::string>;

const std::map<std::string, std::string> fullNames { { "anna", "Anna Weiss" }, { "ben", "Ben Ito" },
    { "carla", "Carla Ruiz" }, { "dana", "Dana Cole" } };

std::string firstWord(const std::string &who)
{
    return who.substr(0, who.find(' '));
}

std::string emailOf(const std::string &who)
{
    return firstWord(who) + "@example.com";
}

void require(const Answer &answer, const std::string &what)
{
    if (answer.status() != 1)
        throw std::runtime_error(
            "the state cannot be brought about: " + what + ": " + answer.json());
}

} // namespace

ServerState::ServerState()
    // A request for a taken lock waits so long; the exchange itself is the same.
    : m_harness([](Config &config) {
        config.lockHold = 100;
        config.ocrProgram = KVX_OCR_PROGRAM;
    })
{
    for (const auto &[who, name] : fullNames) {
        const char *role = who == "carla" ? "Administrator" : who == "dana" ? "" : "Estimator";
        m_harness.addUser(emailOf(who), name, role);
    }
}

Session &ServerState::session(const std::string &who)
{
    auto found = m_sessions.find(who);
    if (found == m_sessions.end()) {
        const char *device = who == firstWord(who) ? "'s desk" : "'s laptop";
        found
            = m_sessions.emplace(who, m_harness.login(emailOf(who), firstWord(who) + device)).first;
    }
    return found->second;
}

std::string ServerState::tokenOf(const std::string &who)
{
    return who == "nobody" ? std::string() : session(who).token;
}

void ServerState::ask(const std::string &who, const Message &message)
{
    require(session(who).ask(message), message.json());
}

std::string ServerState::storedBlob(const std::string &bytes)
{
    const auto file = storeBytes(m_harness.config(), bytes);
    BlobStore(m_harness.config().data)
        .record(m_harness.db(), file->path, file->sha256, file->size, wallTime());
    return file->sha256;
}

/// Straight into the store: an upload would choose the ID.
void ServerState::addTemplate(
    const std::string &who, const std::string &id, const std::string &name)
{
    const std::string document = R"({"title":"Bill"})";
    Template added;
    added.id = id;
    added.name = name;
    added.type = 3;
    added.author = fullNames.at(who);
    added.authorEmail = emailOf(who);
    added.ownerId = findUser(m_harness.db(), emailOf(who))->id;
    added.projectVersion = "2026.1";
    added.blob = storedBlob(document);
    added.md5 = md5(document);
    added.created = added.modified = wallTime();
    TemplateStore(m_harness.db()).add(added);
}

/// As the recognition leaves it; there is none in this process.
void ServerState::endPage(const std::string &job, int page, bool ok, const std::string &text)
{
    OcrStore store(m_harness.db());
    store.start(job, page);
    OcrStore::Result result;
    result.page = page;
    result.ok = ok;
    if (ok)
        result.text = storedBlob(text);
    else
        result.code = static_cast<int>(StatusCode::OcrPageFailed);
    result.message = ok ? std::string() : text;
    store.end(job, page, result, {}, wallTime());
}

void ServerState::bring(const rapidjson::Value &json)
{
    Step step;
    for (const auto &word : json.GetArray())
        step.push_back(textOf(word));
    const auto user = [&] { return findUser(m_harness.db(), emailOf(step.at(1)))->id; };
    const auto about
        = [&](const char *service) { return Message(service).set("ProjectGUID", step.at(2)); };
    const auto logLock
        = [&] { return about("loglock").raw("LogVersion", step.at(3)).set("ReleaseLock", false); };
    const std::map<std::string, std::function<void()>> steps {
        // [name, user, …]
        { "password", [&] { setPassword(m_harness.db(), user(), hashPassword(step.at(2))); } },
        { "account disabled", [&] { setDisabled(m_harness.db(), user(), true); } },
        { "session ended", [&] { ask(step.at(1), Message("logout")); } },
        // [name, user, GUID, …]
        { "project",
            [&] {
                const Session &creator = session(step.at(1));
                ask(step.at(1), newProject(creator, step.at(2), step.at(3)));
            } },
        { "permission",
            [&] {
                require(permit(session(step.at(1)), step.at(2), { { step.at(3), step.at(4) } }),
                    "permission");
            } },
        { "information",
            [&] {
                ask(step.at(1),
                    about("updateprojectadditionalinfo").raw("AdditionalInfo", step.at(3)));
            } },
        { "saved",
            [&] {
                require(save(session(step.at(1)), step.at(2), std::stoll(step.at(3))), "saved");
            } },
        { "open", [&] { ask(step.at(1), about("openproject")); } },
        { "project lock",
            [&] { ask(step.at(1), about("projectlock").set("ReleaseLock", false)); } },
        { "save lock", [&] { ask(step.at(1), logLock()); } },
        { "uploaded",
            [&] {
                const bool log = step.size() > 4;
                const std::string bytes = log ? logArchive(step.at(3), step.at(4)) : "project file";
                require(session(step.at(1)).upload(step.at(3), bytes), "uploaded");
            } },
        { "own file",
            [&] { require(session(step.at(1)).upload(step.at(2), step.at(3)), "own file"); } },
        { "checked out",
            [&] {
                ask(step.at(1),
                    about("checkout")
                        .raw("ModuleType", step.at(3))
                        .set("NotifyOther", false)
                        .set("IDs", step.at(4)));
            } },
        { "checked in",
            [&] {
                ask(step.at(1),
                    about("checkin").raw("ModuleType", step.at(3)).set("IDs", step.at(4)));
            } },
        { "numbers", [&] { ask(step.at(1), about("allocateidrange").set("NewRange", false)); } },
        // [name, user, group, kind]
        { "group",
            [&] {
                ask(step.at(1),
                    Message("newprojectgroup").set("Name", step.at(2)).set("Type", step.at(3)));
            } },
        // [name]: by another administrator
        { "roles changed", [&] { raiseRolesRevision(m_harness.db()); } },
        // [name, user, …]
        { "template", [&] { addTemplate(step.at(1), step.at(2), step.at(3)); } },
        { "template deleted",
            [&] {
                ask(step.at(1),
                    Message("reportTemplateDelete")
                        .raw("templateIDArray", '[' + jsonText(step.at(2)) + ']'));
            } },
        { "global lock",
            [&] {
                ask(step.at(1),
                    Message("GlobalLock")
                        .raw("lockType", step.at(2))
                        .set("lockedAuthorName", fullNames.at(firstWord(step.at(1))))
                        .set("lockedAuthorEmail", emailOf(step.at(1)))
                        .set("autoUnlockTime", 30)
                        .set("logoutUnlock", false));
            } },
        // [name, table, data]
        { "table",
            [&] {
                ask("carla",
                    Message("updatetable")
                        .raw("Table",
                            "{\"tablename\":" + jsonText(step.at(1))
                                + ",\"tabledata\":" + step.at(2) + '}'));
            } },
        // [name, version, content]
        { "package",
            [&] {
                ResourceStore(m_harness.db())
                    .publish(step.at(1), storedBlob(step.at(2)), wallTime());
            } },
        // [name, user, job, export type, pages (1)]: straight into the store, as for templates
        { "recognition job",
            [&] {
                std::vector<int> pages(step.size() > 4 ? std::stoul(step.at(4)) : 1);
                std::iota(pages.begin(), pages.end(), 0);
                const int exportType = std::stoi(step.at(3));
                if (exportType == 2)
                    pages.push_back(OcrStore::documentPage);
                OcrStore(m_harness.db())
                    .add({ step.at(2), user(), storedBlob("a scanned page"), "scan.pdf", "eng",
                             exportType, OcrStore::JobState::Queued, wallTime() },
                        pages);
            } },
        // [name, job, page, text]; [name, job, page, reason]; [name, job, content]
        { "recognised page",
            [&] { endPage(step.at(1), std::stoi(step.at(2)), true, step.at(3)); } },
        { "failed page", [&] { endPage(step.at(1), std::stoi(step.at(2)), false, step.at(3)); } },
        { "recognised document",
            [&] { endPage(step.at(1), OcrStore::documentPage, true, step.at(2)); } },
        { "recognition cancelled",
            [&] { ask(step.at(1), Message("cancel").set("JobID", step.at(2))); } },
        // [name, value]: settings of the server
        { "languages offered", [&] { m_harness.config().ocrLanguages = { step.at(1) }; } },
        { "products served", [&] { m_harness.config().loginProducts = { step.at(1) }; } },
        { "sessions of one user",
            [&] { m_harness.config().sessionPerUser = std::stoi(step.at(1)); } },
        { "space of one user", [&] { m_harness.config().userQuota = std::stoll(step.at(1)); } },
        { "disk full",
            [&] { m_harness.config().diskReserve = std::numeric_limits<std::int64_t>::max(); } },
        { "all numbers given",
            [&] { m_harness.db().run("UPDATE project SET next_item = 2147483647", {}); } },
        { "maintenance", [&] { setMetaValue(m_harness.db(), "read_only", "1"); } },
    };
    const auto found = steps.find(step.at(0));
    if (found == steps.end())
        throw std::runtime_error("there is no step \"" + step.at(0) + '"');
    found->second();
}

static const Endpoint &endpointAt(const std::string &path)
{
    for (const Endpoint &endpoint : allEndpoints()) {
        if (path == endpoint.path)
            return endpoint;
    }
    throw std::runtime_error("nothing is served at " + path);
}

Reply ServerState::post(const std::string &who, const std::string &path, const std::string &request,
    const std::string *file)
{
    const auto exchange = std::make_shared<server::Exchange>();
    exchange->endpoint = &endpointAt(path);
    if (!exchange->endpoint->service)
        exchange->body = request;
    exchange->address = "127.0.0.1";
    exchange->token = tokenOf(who);
    exchange->connectionId = who == "nobody" ? 1'000'000 : session(who).connection;
    Dispatcher &dispatcher = m_harness.dispatcher();
    const auto wait = [&](void (Dispatcher::*step)(const ExchangePtr &, Completion)) {
        std::promise<Reply> promise;
        (dispatcher.*step)(
            exchange, [&promise](Reply reply) { promise.set_value(std::move(reply)); });
        return promise.get_future().get();
    };
    if (!file)
        return wait(&Dispatcher::dispatch);
    Reply decided = wait(&Dispatcher::beginUpload);
    if (!decided.isOk())
        return decided;
    const std::string received = m_harness.folder() + "/tmp/" + newUuid();
    std::ofstream(received, std::ios::binary) << *file;
    exchange->file = std::make_shared<ReceivedFile>(
        received, static_cast<std::int64_t>(file->size()), sha256(*file), md5(*file));
    return wait(&Dispatcher::finishUpload);
}

std::string bytesOf(const rapidjson::Value &file)
{
    const std::string content = textOf(file["content"]);
    return file.HasMember("entry") ? logArchive(textOf(file["entry"]), content) : content;
}

} // namespace kvx::test
