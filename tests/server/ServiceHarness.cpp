#include "ServiceHarness.h"

#include "base/Digest.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "base/Text.h"
#include "services/FileNames.h"
#include "services/ProjectRecord.h"
#include "store/Migrations.h"
#include "store/SessionStore.h"
#include "store/UserStore.h"

#include <atomic>
#include <fstream>
#include <sstream>
#include <unistd.h>
#include <zip.h>

namespace kvx::test {

using namespace kvx::server;

namespace {

std::string newFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "kvx-services-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("no temporary folder");
    return pattern;
}

RoleRights rightsOf(const std::string &role)
{
    RoleRights rights;
    rights.administrator = role == "Administrator";
    rights.allProjectReadWrite = role == "Everything";
    rights.uploadReportSetting = role == "Everything";
    rights.allProjectReview = role == "Reviewer";
    rights.readOnlyRateLibrary = role == "Library reader";
    rights.readWriteRateLibrary = role == "Library writer";
    rights.readWriteBQLibrary = role == "Bill writer";
    return rights;
}

} // namespace

TemporaryFolder::TemporaryFolder()
    : path(newFolder())
{
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

Message &Message::set(const char *key, const std::string &text)
{
    return raw(key, jsonText(text));
}

Message &Message::raw(const char *key, const std::string &json)
{
    m_json += (m_json.size() > 1 ? "," : "") + jsonText(key) + ':' + json;
    return *this;
}

Answer::Answer(const Reply &reply)
    : httpStatus(reply.httpStatus())
    , m_text(reply.body())
    , m_path(reply.fileBody() ? reply.fileBody()->path : "")
    , m_json(std::make_shared<rapidjson::Document>())
{
    m_json->Parse(m_text.data(), m_text.size());
    if (m_json->HasParseError() || !m_json->IsObject())
        throw std::runtime_error("the reply is no JSON object: " + m_text.substr(0, 200));
}

const rapidjson::Value &Answer::operator[](const char *key) const
{
    const auto member = m_json->FindMember(key);
    if (member == m_json->MemberEnd())
        throw std::runtime_error(std::string("no ") + key + " in " + m_text.substr(0, 200));
    return member->value;
}

std::int64_t Answer::integer(const char *key) const
{
    const auto &value = (*this)[key];
    if (!value.IsInt64())
        throw std::runtime_error(
            std::string(key) + " is no whole number in " + m_text.substr(0, 200));
    return value.GetInt64();
}

std::string Answer::text(const char *key) const
{
    const auto &value = (*this)[key];
    if (!value.IsString())
        throw std::runtime_error(std::string(key) + " is no text in " + m_text.substr(0, 200));
    return value.GetString();
}

std::string Answer::keys() const
{
    std::string all;
    for (const auto &member : m_json->GetObject())
        all += (all.empty() ? "" : " ") + std::string(member.name.GetString());
    return all;
}

std::string Answer::fileBytes() const
{
    std::ifstream file(m_path, std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

Session::Session(ServiceHarness &harness, const std::string &email, const std::string &device)
    : email(email)
    , device(device)
    , token(newUuid())
    , connection(++harness.m_connections)
    , m_harness(&harness)
{
    Db &db = harness.db();
    userId = findUser(db, email)->id;
    Transaction transaction(db, Transaction::Kind::Write);
    id = addSession(db, harness.config(), harness.m_clock->now(),
        { userId, token, device, "127.0.0.1", "1.0", "test" });
    transaction.commit();
}

Answer Session::ask(Message message) const
{
    return askAs(std::move(message.set("Email", email)));
}

Answer Session::askAs(Message message) const
{
    return askLater(std::move(message)).get();
}

/// Where that service is asked for; the first path where no table names it.
static const Endpoint &endpointOf(const std::string &service)
{
    for (const Endpoint &endpoint : allEndpoints()) {
        for (const ServiceTable *table : endpoint.tables) {
            for (const Service &one : *table) {
                if (service == one.name)
                    return endpoint;
            }
        }
    }
    return allEndpoints().front();
}

static ExchangePtr exchangeOf(const Session &session, const Message &message)
{
    auto exchange = std::make_shared<Exchange>();
    exchange->endpoint = &endpointOf(message.service);
    exchange->body = message.json();
    exchange->token = session.token;
    exchange->address = "127.0.0.1";
    exchange->connectionId = session.connection;
    return exchange;
}

std::future<Answer> Session::askLater(Message message) const
{
    auto promise = std::make_shared<std::promise<Answer>>();
    m_harness->m_dispatcher->dispatch(
        exchangeOf(*this, message), [promise](Reply reply) { promise->set_value(Answer(reply)); });
    return promise->get_future();
}

Answer Session::upload(
    const std::string &fileName, const std::string &bytes, const std::string &md5) const
{
    Message message("upload");
    message.set("FileName", fileName).set("Email", email);
    if (!md5.empty())
        message.set("md5", md5);
    return upload(message, bytes);
}

Answer Session::upload(Message message, const std::string &bytes) const
{
    const ExchangePtr exchange = exchangeOf(*this, message);
    Dispatcher &dispatcher = *m_harness->m_dispatcher;
    const auto wait = [&](void (Dispatcher::*step)(const ExchangePtr &, Completion)) {
        std::promise<Reply> promise;
        (dispatcher.*step)(
            exchange, [&promise](Reply reply) { promise.set_value(std::move(reply)); });
        return promise.get_future().get();
    };
    const Reply decided = wait(&Dispatcher::beginUpload);
    if (!decided.isOk())
        return Answer(decided);
    const std::string path = m_harness->folder() + "/tmp/" + newUuid();
    std::ofstream(path, std::ios::binary) << bytes;
    exchange->file = std::make_shared<ReceivedFile>(
        path, static_cast<std::int64_t>(bytes.size()), sha256(bytes), server::md5(bytes));
    return Answer(wait(&Dispatcher::finishUpload));
}

ServiceHarness::ServiceHarness(const Adjust &adjust)
{
    m_config.data = m_folder.path;
    m_config.diskReserve = 0;
    m_config.logLevel = "error";
    if (adjust)
        adjust(m_config);
    openLog(m_config);
    for (const char *folder : { "/db", "/blobs", "/tmp" })
        std::filesystem::create_directory(m_folder.path + folder);
    m_db = std::make_unique<Db>(m_config.databaseFile(), Db::Mode::Create);
    m_clock = std::make_unique<MovableClock>();
    migrate(*m_db, m_clock->now());
    Transaction transaction(*m_db, Transaction::Kind::Write);
    for (const char *role : { "Administrator", "Everything", "Reviewer", "Estimator",
             "Library reader", "Library writer", "Bill writer" })
        addRole(*m_db, role, rightsOf(role));
    transaction.commit();
    m_environment = std::make_unique<Environment>(Environment { m_config, *m_clock, newUuid(), 1 });
    m_pool = std::make_unique<DbPool>(m_config.databaseFile(), 2);
    m_dispatcher = std::make_unique<Dispatcher>(*m_environment, *m_pool, Dispatcher::Told {});
}

ServiceHarness::~ServiceHarness()
{
    m_dispatcher->drain();
    m_dispatcher->stopWorkers();
    m_pool.reset();
    m_dispatcher.reset();
}

std::int64_t ServiceHarness::addUser(
    const std::string &email, const std::string &name, const std::string &role)
{
    Transaction transaction(*m_db, Transaction::Kind::Write);
    const std::int64_t id = server::addUser(*m_db, m_clock->now(), email, name, "none");
    if (!role.empty())
        assignRole(*m_db, findRole(*m_db, role).value(), id);
    transaction.commit();
    return id;
}

Session ServiceHarness::login(const std::string &email, const std::string &device)
{
    return Session(*this, email, device);
}

Session ServiceHarness::join(const std::string &email, const std::string &role)
{
    std::string name = email.substr(0, email.find('@'));
    name[0] = static_cast<char>(std::toupper(name[0]));
    addUser(email, name, role);
    return login(email, "desk of " + name);
}

std::vector<ServiceHarness::Sent> ServiceHarness::takeSent()
{
    std::vector<Sent> sent;
    m_db->each<std::int64_t, std::string, std::string, std::string, std::string,
        std::optional<std::int64_t>>("SELECT id, type, command, sender, payload, project_id FROM "
                                     "outbox WHERE id > :last ORDER BY id",
        { { "last", m_lastSent } },
        [&](std::int64_t id, std::string type, std::string command, std::string sender,
            std::string payload, std::optional<std::int64_t> project) {
            m_lastSent = id;
            if (payload.empty())
                payload = announcedRecord(*m_db, m_clock->now(), project.value(), "").value_or("");
            sent.push_back({ type, command, sender, payload });
        });
    return sent;
}

std::string guidOf(int n)
{
    char text[48];
    std::snprintf(
        text, sizeof text, "{%08X-AbCd-4abc-8def-0123456789ab}", static_cast<unsigned>(n));
    return text;
}

std::string logArchive(const std::string &entry, const std::string &content)
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t *target = zip_source_buffer_create(nullptr, 0, 0, &error);
    zip_source_keep(target);
    zip_t *archive = zip_open_from_source(target, ZIP_TRUNCATE, &error);
    zip_source_t *source = zip_source_buffer(archive, content.data(), content.size(), 0);
    const zip_int64_t index = zip_file_add(archive, entry.c_str(), source, ZIP_FL_ENC_UTF_8);
    zip_file_set_mtime(archive, static_cast<zip_uint64_t>(index), 1'000'000'000, 0);
    if (zip_close(archive) != 0)
        throw std::runtime_error("the archive cannot be made");
    zip_stat_t status;
    zip_source_stat(target, &status);
    std::string bytes(status.size, '\0');
    zip_source_open(target);
    zip_source_read(target, bytes.data(), bytes.size());
    zip_source_close(target);
    zip_source_free(target);
    return bytes;
}

Message newProject(const Session &creator, const std::string &guid, const std::string &name,
    const std::string &kind)
{
    Message message("newproject");
    message.set("Type", kind)
        .set("Name", name)
        .set("ProjectGUID", guid)
        .set("CreatorName", "whoever");
    return message.set("CreatorEmail", creator.email).set("Amount", "12.50").set("ProjectState", 0);
}

Answer save(const Session &session, const std::string &guid, std::int64_t version,
    const std::string &content)
{
    const std::string log = logName(guid, version + 1);
    const Message lock = Message("loglock").set("ProjectGUID", guid).set("LogVersion", version);
    const Answer locked = session.ask(Message(lock).set("ReleaseLock", false));
    if (locked.status() != 1 || locked.integer("Lock") != 1)
        return locked;
    const auto release = [&] { session.ask(Message(lock).set("ReleaseLock", true)); };
    for (const auto &[name, bytes] : { std::pair(log, logArchive(log, content)),
             std::pair(guid + ".KVX", "file with " + content) }) {
        const Answer uploaded = session.upload(name, bytes);
        if (uploaded.status() != 1) {
            release();
            return uploaded;
        }
    }
    const Answer merged = session.ask(Message("sendservertomerge")
                                          .set("ProjectGUID", guid)
                                          .set("LogVersion", version)
                                          .set("LogFilename", log)
                                          .set("Amount", "99"));
    release();
    return merged;
}

Answer permit(const Session &owner, const std::string &guid,
    const std::vector<std::pair<std::string, std::string>> &levels)
{
    std::string array = "[";
    for (const auto &[email, values] : levels) {
        std::stringstream parts(values);
        std::string level;
        array += (array.size() > 1 ? ",{" : "{") + ("\"Email\":" + jsonText(email));
        for (const char *key : { "ProjectRW", "Money", "Addendum", "Report" }) {
            if (std::getline(parts, level, ','))
                array += ",\"" + std::string(key) + "\":" + level;
        }
        array += '}';
    }
    return owner.ask(
        Message("projectpermission").set("ProjectGUID", guid).raw("userperms", array + ']'));
}

} // namespace kvx::test
