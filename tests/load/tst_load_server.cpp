#include "BrokerClient.h"
#include "ServiceHarness.h"

#include "services/FileNames.h"
#include "services/Password.h"
#include "store/UserStore.h"
#include "support/Broker.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"
#include "support/WaitFor.h"
#include "support/Watchdog.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <random>
#include <sys/resource.h>
#include <thread>

// A whole company at one server: all log in at the same moment, then listen, ask their light
// questions, and some of them save large change logs. The figures are printed; the long run holds
// them to what is promised.

namespace kvx::test {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

bool isLong()
{
    return std::getenv("KVX_TEST_LONG") != nullptr;
}

double millisecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

double quantileOf(std::vector<double> values, double part)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(
        values.size() - 1, static_cast<std::size_t>(part * static_cast<double>(values.size())))];
}

double peakMiB(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atof(line.c_str() + 6) / 1024;
    }
    return -1;
}

std::string noise(std::size_t size, unsigned seed)
{
    std::mt19937_64 random(seed);
    std::string bytes(size, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

/// When each message reached how many.
class Arrivals {
public:
    explicit Arrivals(std::size_t listeners)
        : m_listeners(listeners)
    {
    }
    void sent(const std::string &key)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_messages[key].begin = Clock::now();
    }
    void heard(const std::string &key)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_messages.find(key);
        if (found == m_messages.end())
            return;
        Message &message = found->second;
        if (++message.times == m_listeners)
            message.took = millisecondsSince(message.begin);
    }
    std::size_t missing()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::size_t missing = 0;
        for (const auto &[key, message] : m_messages)
            missing += message.times < m_listeners;
        return missing;
    }
    std::vector<double> times()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<double> times;
        for (const auto &[key, message] : m_messages) {
            EXPECT_EQ(message.times, m_listeners) << key;
            times.push_back(message.took);
        }
        return times;
    }

private:
    struct Message {
        Clock::time_point begin;
        std::size_t times = 0;
        double took = 0; ///< ms, until all had it
    };
    const std::size_t m_listeners;
    std::mutex m_mutex;
    std::map<std::string, Message> m_messages; ///< guarded by m_mutex
};

class LoadedServer : public testing::Test {
protected:
    const std::size_t people = isLong() ? 500 : 40;
    const std::size_t savers = isLong() ? 10 : 3;

    LoadedServer()
        : broker(guarded())
        , server(options())
    {
        // Everybody is a client of his own here: a connection to the server and one to the broker.
        rlimit files {};
        getrlimit(RLIMIT_NOFILE, &files);
        files.rlim_cur = std::min<rlim_t>(files.rlim_max, 16384);
        setrlimit(RLIMIT_NOFILE, &files);
        server.start(); // makes the database
        server.stop();
        addPeople();
        server.start();
        HttpClient health(server.adminUrl());
        EXPECT_TRUE(waitFor(
            [&] { return health.get("/readyz").body.find("guard: ok") != std::string::npos; }));
        for (std::size_t i = 0; i < people; ++i)
            clients.push_back(std::make_unique<HttpClient>(server.url()));
    }

    static Broker::Options guarded()
    {
        Broker::Options options;
        options.guard = true;
        return options;
    }
    ServerProcess::Options options() const
    {
        ServerProcess::Options options;
        options.start = false;
        options.brokerUrl = broker.uri();
        options.settings = { { "broker.user", Broker::guardedServer.name },
            { "broker.password", Broker::guardedServer.password },
            { "limits.perAddress", "2000" } };
        return options;
    }
    /// Everybody reads every project by role; one hash for all, a login's check costs the same.
    void addPeople()
    {
        server::Db db(server.dataFolder() + "/db/kvx.sqlite");
        const std::string hash = server::hashPassword(password);
        server::Transaction transaction(db, server::Transaction::Kind::Write);
        const auto role = server::findRole(db, "Reviewer");
        for (std::size_t i = 0; i < people; ++i)
            server::assignRole(db, role.value(),
                server::addUser(db, server::wallTime(), email(i), "P " + std::to_string(i), hash));
        transaction.commit();
    }
    static std::string email(std::size_t i) { return "p" + std::to_string(i) + "@example.com"; }

    /// All at once; who is told "busy" asks again.
    void storm()
    {
        std::atomic<int> busy { 0 };
        std::atomic<int> refused { 0 };
        std::mutex mutex;
        std::vector<double> took;
        const auto begin = Clock::now();
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < people; ++i) {
            threads.emplace_back([&, i] {
                clients[i]->setTimeout(60'000);
                for (int tries = 0; tries < 1000; ++tries) {
                    const int status = clients[i]->login(email(i), password).statusCode();
                    if (status == 1) {
                        const std::lock_guard<std::mutex> lock(mutex);
                        took.push_back(millisecondsSince(begin));
                        return;
                    }
                    if (status != 103) {
                        ++refused;
                        return;
                    }
                    ++busy;
                    std::this_thread::sleep_for(200ms);
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        const double all = millisecondsSince(begin) / 1000;
        std::printf("%zu logins at once: %.1f s for all, %.1f s for half, %d times \"busy\"\n",
            people, all, quantileOf(took, 0.5) / 1000, busy.load());
        EXPECT_EQ(took.size(), people);
        EXPECT_EQ(refused, 0) << "nobody is locked out";
        if (isLong()) {
            EXPECT_LT(all, 40);
        }
    }

    static constexpr char password[] = "loaded 1";
    Broker broker;
    ServerProcess server;
    std::vector<std::unique_ptr<HttpClient>> clients;
};

/// A client that saves a project of its own, again and again.
class Saver {
public:
    Saver(HttpClient &client, std::string email, int number)
        : m_client(client)
        , m_email(std::move(email))
        , m_guid(guidOf(number))
        , m_bytes(noise(1 << 20, static_cast<unsigned>(number)))
    {
    }
    const std::string &guid() const { return m_guid; }

    bool make()
    {
        return ask("newproject",
                   { { "Type", "\"Tender\"" }, { "Name", jsonQuoted(m_guid) },
                       { "CreatorName", "\"\"" }, { "CreatorEmail", jsonQuoted(m_email) },
                       { "Amount", "\"0\"" }, { "ProjectState", "0" } })
            && ask("openproject", {}) && upload(m_guid + ".KVX", m_bytes);
    }
    /// False when any step of it fails. `beforeMerge` is called when the rest is done.
    bool save(const std::function<void(const std::string &)> &beforeMerge)
    {
        const std::string version = std::to_string(m_version);
        const std::string log = server::logName(m_guid, m_version + 1);
        const std::vector<std::pair<std::string, std::string>> lock { { "LogVersion", version } };
        auto take = lock;
        take.emplace_back("ReleaseLock", "false");
        auto release = lock;
        release.emplace_back("ReleaseLock", "true");
        if (!ask("loglock", take) || !upload(log, logArchive(log, m_bytes))
            || !upload(m_guid + ".KVX", m_bytes))
            return false;
        beforeMerge(m_guid + ' ' + std::to_string(m_version + 1));
        const bool merged = ask("sendservertomerge",
            { { "LogVersion", version }, { "LogFilename", jsonQuoted(log) },
                { "Amount", "\"1\"" } });
        m_version += merged;
        return ask("loglock", release) && merged;
    }

private:
    bool ask(const std::string &service, std::vector<std::pair<std::string, std::string>> members)
    {
        members.emplace_back("service", jsonQuoted(service));
        members.emplace_back("Email", jsonQuoted(m_email));
        members.emplace_back("ProjectGUID", jsonQuoted(m_guid));
        const HttpReply reply = m_client.post(jsonObject(members));
        EXPECT_EQ(reply.statusCode(), 1) << service << ' ' << reply.error << reply.json();
        return reply.statusCode() == 1;
    }
    bool upload(const std::string &name, const std::string &bytes)
    {
        const HttpReply reply = m_client.upload(
            jsonObject({ { "service", "\"upload\"" }, { "FileName", jsonQuoted(name) } }), bytes);
        EXPECT_EQ(reply.statusCode(), 1) << name << ' ' << reply.error << reply.json();
        return reply.statusCode() == 1;
    }

    HttpClient &m_client;
    const std::string m_email;
    const std::string m_guid;
    const std::string m_bytes;
    int m_version = -1;
};

/// "guid version" of a message about a save; empty of any other.
std::string savedIn(const std::string &text)
{
    const auto after = [&text](const char *key) {
        const auto at = text.find(key);
        return at == std::string::npos ? std::string() : text.substr(at + std::strlen(key), 38);
    };
    if (text.find("\"Command\":\"Save\"") == std::string::npos)
        return {};
    return after("\"ProjectGUID\":\"") + ' '
        + std::to_string(std::atoi(after("\"LogVersion\":").c_str()));
}

} // namespace

TEST_F(LoadedServer, EverybodyAtOnceLogsInListensAsksAndIsTold)
{
    Watchdog::allow(isLong() ? 580 : 110);
    storm();

    Arrivals arrivals(people);
    std::vector<std::unique_ptr<BrokerClient>> listeners;
    for (std::size_t i = 0; i < people; ++i)
        listeners.push_back(std::make_unique<BrokerClient>(broker.uri(), email(i),
            [&arrivals](const std::string &text) { arrivals.heard(savedIn(text)); }));

    std::vector<Saver> projects;
    for (std::size_t i = 0; i < savers; ++i)
        projects.emplace_back(*clients[i], email(i), static_cast<int>(i) + 1);
    for (Saver &project : projects)
        ASSERT_TRUE(project.make());

    const auto end = Clock::now() + (isLong() ? 60s : 5s);
    std::mutex mutex;
    std::vector<double> saves;
    std::vector<double> light;
    std::atomic<int> errors { 0 };
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < savers; ++i) {
        threads.emplace_back([&, i] {
            while (Clock::now() < end) {
                const auto begin = Clock::now();
                errors += !projects[i].save([&](const std::string &key) { arrivals.sent(key); });
                const double took = millisecondsSince(begin);
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    saves.push_back(took);
                }
                // Even a diligent estimator looks at his work between two saves.
                std::this_thread::sleep_until(begin + 2s);
            }
        });
    }
    // Everybody else asks something about every other second.
    constexpr std::size_t askers = 8;
    for (std::size_t asker = 0; asker < askers; ++asker) {
        threads.emplace_back([&, asker] {
            std::mt19937 random(static_cast<unsigned>(asker));
            std::vector<double> own;
            auto next = Clock::now();
            const auto step = std::chrono::microseconds(
                2'000'000 * askers / std::max<std::size_t>(1, people - savers));
            // A client is asked by one thread.
            for (std::size_t who = savers + asker; Clock::now() < end; who += askers) {
                if (who >= people)
                    who = savers + asker;
                static const char *const services[]
                    = { "keepactive", "getlogversion", "getproject", "onlineeditors" };
                const char *service = services[random() % 4];
                const std::string request = jsonObject(
                    { { "service", jsonQuoted(service) }, { "Email", jsonQuoted(email(who)) },
                        { "ProjectGUID", jsonQuoted(projects[random() % savers].guid()) } });
                const auto begin = Clock::now();
                const HttpReply reply = clients[who]->post(request);
                own.push_back(millisecondsSince(begin));
                if (reply.statusCode() != 1) {
                    ++errors;
                    ADD_FAILURE() << service << ' ' << reply.error << reply.json();
                }
                std::this_thread::sleep_until(next += step);
            }
            const std::lock_guard<std::mutex> lock(mutex);
            light.insert(light.end(), own.begin(), own.end());
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_TRUE(waitFor([&] { return arrivals.missing() == 0; }));
    const std::vector<double> told = arrivals.times();
    const double memory = peakMiB(server.pid());
    std::printf("%zu light questions: %.1f ms (half), %.1f ms (99 of 100)\n"
                "%zu saves of 1 MiB: %.0f ms (half), %.0f ms (longest)\n"
                "until all %zu were told: %.0f ms (half), %.0f ms (99 of 100)\n"
                "server: %.0f MiB at most; %d errors\n",
        light.size(), quantileOf(light, 0.5), quantileOf(light, 0.99), saves.size(),
        quantileOf(saves, 0.5), quantileOf(saves, 1), people, quantileOf(told, 0.5),
        quantileOf(told, 0.99), memory, errors.load());
    EXPECT_EQ(errors, 0);
    EXPECT_GT(saves.size(), savers);
    EXPECT_GT(light.size(), people);
    for (const auto &listener : listeners)
        EXPECT_FALSE(listener->isCut());
    if (isLong()) {
        EXPECT_LT(quantileOf(light, 0.99), 250);
        EXPECT_LT(quantileOf(saves, 1), 2000);
        EXPECT_LT(quantileOf(told, 0.99), 2000);
        EXPECT_LT(memory, 1024);
    }
    // Closing five hundred connections one after the other takes its time.
    std::vector<std::thread> closers;
    for (std::size_t part = 0; part < askers; ++part) {
        closers.emplace_back([&, part] {
            for (std::size_t i = part; i < listeners.size(); i += askers)
                listeners[i].reset();
        });
    }
    for (std::thread &closer : closers)
        closer.join();
}

} // namespace kvx::test
