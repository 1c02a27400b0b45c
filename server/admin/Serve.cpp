#include "admin/Serve.h"
#include "admin/CommandLine.h"
#include "admin/DataFolder.h"
#include "admin/FirstStart.h"
#include "admin/Readiness.h"
#include "base/Config.h"
#include "base/JsonText.h"
#include "base/Log.h"
#include "http/HttpServer.h"
#include "notify/GuardFeed.h"
#include "notify/Janitor.h"
#include "notify/Publisher.h"
#include "ocr/OcrEngine.h"
#include "services/Dispatcher.h"
#include "services/Password.h"
#include "services/ProjectRecord.h"
#include "store/BlobStore.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/MetaStore.h"
#include "store/Migrations.h"
#include "store/ProcessStore.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <optional>
#include <thread>

namespace kvx::server {

namespace {

constexpr std::chrono::seconds publisherDrain { 5 };
constexpr std::chrono::seconds guardEnd { 5 };

void tellPassword(const std::optional<FirstAdministrator> &made, const std::string &passwordFile)
{
    if (!made)
        return;
    if (passwordFile.empty())
        std::cout << "First administrator: " << made->email << ", password: " << made->password
                  << std::endl;
    else
        std::cout << "First administrator: " << made->email << ", password in " << passwordFile
                  << std::endl;
}

/// The database as it must be before requests come; the clock of the runs to come.
Time openDatabase(
    const Config &config, const ServeOptions &options, std::string &epoch, std::int64_t &process)
{
    Db db(config.databaseFile(), Db::Mode::Create);
    tellPassword(
        prepareDatabase(db, config, wallTime(), options.passwordFile), options.passwordFile);
    epoch = metaValue(db, "epoch").value();
    const Time lastSeen = std::stoll(metaValue(db, "clock").value_or("0"));
    const Time now = std::max(wallTime(), lastSeen);
    settleAfterRestart(db, config, now, lastSeen);
    Transaction transaction(db, Transaction::Kind::Write);
    process = registerProcess(db, now);
    transaction.commit();
    return lastSeen;
}

std::string addressText(const HostPort &address, std::uint16_t port)
{
    const bool v6 = address.host.find(':') != std::string::npos;
    return (v6 ? '[' + address.host + ']' : address.host) + ':' + std::to_string(port);
}

} // namespace

int serve(const Config &config, const ServeOptions &options)
{
    makeDataFolders(config);
    const DataFolderLock lock(config);
    openLog(config);
    std::string epoch;
    std::int64_t process = 0;
    const Time highest = openDatabase(config, options, epoch, process);
    if (options.checkOnly) {
        std::cout << "The configuration, the database and the store are in order." << std::endl;
        return ExitDone;
    }
    sweepFolder(config.temporaryFolder(), std::numeric_limits<Time>::max());
    BlobStore(config.data).makeFolders();
    dummyHash();

    const Clock clock(highest);
    const Environment environment { config, clock, epoch, process };
    const auto cores = static_cast<int>(std::thread::hardware_concurrency());
    auto pool = std::make_unique<DbPool>(config.databaseFile(), std::max(2, cores));
    auto guard = std::make_unique<GuardFeed>(config, clock, *pool);
    std::unique_ptr<Publisher> publisher;
    auto dispatcher = std::make_unique<Dispatcher>(environment, *pool,
        Dispatcher::Told { [&publisher] { publisher->wake(); }, [&guard] { guard->wake(); } });
    std::optional<Readiness> readiness;
    auto http = std::make_unique<HttpServer>(
        environment, *dispatcher, [&readiness](std::function<void(HealthReport)> answer) {
            readiness->check(std::move(answer));
        });
    auto janitor = std::make_unique<Janitor>(
        environment, *pool, [&dispatcher](const std::string &key) { dispatcher->wakeHeld(key); });
    auto ocr = std::make_unique<OcrEngine>(
        environment, *pool, [&dispatcher](const std::string &key) { dispatcher->wakeHeld(key); });

    try {
        http->listen();
        // Not before: whoever hears what the last run left unsent asks the server at once.
        publisher = std::make_unique<Publisher>(config, clock, *pool, announcedRecord);
        readiness.emplace(environment, *pool, *publisher, *guard);
        logLine(LogLevel::Info, "ready",
            { { "listen", addressText(config.listen, http->port()) },
                { "admin", addressText(config.adminListen, http->adminPort()) },
                { "data", config.data } });
        http->run();
    } catch (...) {
        janitor.reset();
        ocr.reset();
        dispatcher->stopWorkers();
        publisher.reset();
        guard.reset();
        pool.reset();
        throw;
    }
    janitor.reset();
    ocr.reset();
    dispatcher->stopWorkers();
    const bool drained = publisher->stop(publisherDrain);
    const bool ended = guard->stop(guardEnd) && drained;
    logLine(LogLevel::Info, "stopped");
    if (!ended)
        std::quick_exit(ExitDone); // a thread is caught in a broker that never answers
    pool.reset();
    dispatcher.reset();
    http.reset();
    return ExitDone;
}

int initialise(const Config &config, const ServeOptions &options, bool json)
{
    makeDataFolders(config);
    Db db(config.databaseFile(), Db::Mode::Create);
    const auto made = prepareDatabase(db, config, wallTime(), options.passwordFile);
    if (json) {
        std::cout << "{\"ok\":true";
        if (made) {
            std::cout << ",\"email\":" << jsonText(made->email);
            if (options.passwordFile.empty())
                std::cout << ",\"password\":" << jsonText(made->password);
        }
        std::cout << "}\n";
    } else if (made) {
        tellPassword(made, options.passwordFile);
    } else {
        std::cout << "The database is there already.\n";
    }
    return ExitDone;
}

int migrateOnly(const Config &config, bool dryRun, bool json)
{
    Db db(config.databaseFile());
    const auto pending = pendingMigrations(db);
    if (!dryRun)
        migrate(db, wallTime());
    std::string names;
    for (const Migration &step : pending)
        names += (names.empty() ? ""
                         : json ? ","
                                : "\n")
            + (json ? jsonText(step.name) : step.name);
    if (json)
        std::cout << "{\"ok\":true,\"steps\":[" << names << "]}\n";
    else
        std::cout << (names.empty() ? "The schema is up to date." : names) << '\n';
    return ExitDone;
}

} // namespace kvx::server
