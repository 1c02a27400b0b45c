#pragma once

#include "base/Clock.h"
#include "base/Config.h"
#include "services/Call.h"
#include "services/Dispatcher.h"
#include "store/Db.h"
#include "store/DbPool.h"
#include "store/RoleStore.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <rapidjson/document.h>
#include <string>
#include <vector>

namespace kvx::test {

/// A folder that goes with the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    const std::string path;
};

/// A request's JSON text, key by key.
class Message {
public:
    explicit Message(const std::string &service)
        : service(service)
    {
        set("service", service);
    }
    Message &set(const char *key, const std::string &text);
    Message &set(const char *key, const char *text) { return set(key, std::string(text)); }
    Message &set(const char *key, bool flag) { return raw(key, flag ? "true" : "false"); }
    Message &set(const char *key, std::int64_t number) { return raw(key, std::to_string(number)); }
    Message &set(const char *key, int number) { return set(key, std::int64_t { number }); }
    Message &raw(const char *key, const std::string &json);
    std::string json() const { return m_json + '}'; }

    const std::string service;

private:
    std::string m_json = "{";
};

/// A reply as a client reads it.
class Answer {
public:
    explicit Answer(const server::Reply &reply);
    const int httpStatus;
    int status() const { return static_cast<int>(integer("statuscode")); }
    std::int64_t integer(const char *key) const;
    std::string text(const char *key) const;
    bool has(const char *key) const { return m_json->HasMember(key); }
    const rapidjson::Value &operator[](const char *key) const;
    /// The keys in order, separated by blanks: the whole shape of a reply.
    std::string keys() const;
    const std::string &json() const { return m_text; }
    /// The bytes of a download.
    std::string fileBytes() const;
    bool isFile() const { return !m_path.empty(); }

private:
    std::string m_text;
    std::string m_path;
    std::shared_ptr<rapidjson::Document> m_json;
};

/// The server's clock, put ahead by as much as a test wants, or stopped.
class MovableClock : public server::Clock {
public:
    server::Time now() const override
    {
        return (m_stopped ? m_stopped.load() : Clock::now()) + m_ahead;
    }
    void advance(server::Time milliseconds) { m_ahead += milliseconds; }
    void stop() { m_stopped = Clock::now(); }
    /// Sets the wall clock by as much off the right time; leases and time-outs go on.
    void setWallOff(server::Time milliseconds) { m_wallOff = milliseconds; }

protected:
    server::Time wall() const override { return Clock::wall() + m_wallOff; }

private:
    std::atomic<server::Time> m_wallOff { 0 };
    std::atomic<server::Time> m_ahead { 0 };
    std::atomic<server::Time> m_stopped { 0 }; ///< 0: it runs
};

class ServiceHarness;

/// A user's session on one device, over one connection.
class Session {
public:
    Session(ServiceHarness &harness, const std::string &email, const std::string &device);

    /// Adds "Email" and asks; waits for the reply.
    Answer ask(Message message) const;
    Answer askAs(Message message) const; ///< without adding anything
    std::future<Answer> askLater(Message message) const;
    Answer upload(
        const std::string &fileName, const std::string &bytes, const std::string &md5 = {}) const;
    Answer upload(Message message, const std::string &bytes) const;

    const std::string email;
    const std::string device;
    std::string token;
    std::int64_t id = 0;
    std::int64_t userId = 0;
    std::uint64_t connection = 0;

private:
    ServiceHarness *m_harness;
};

/// The services over a real database and a real store, without the HTTP listener.
class ServiceHarness {
public:
    using Adjust = std::function<void(server::Config &)>;
    explicit ServiceHarness(const Adjust &adjust = {});
    ~ServiceHarness();

    /// A user with that role (none when empty). Roles: "Administrator", "Everything", "Reviewer",
    /// "Estimator", "Library reader", "Library writer", "Bill writer".
    std::int64_t addUser(
        const std::string &email, const std::string &name, const std::string &role = "Estimator");
    Session login(const std::string &email, const std::string &device = "desk");
    /// addUser and login; the name is the part of the address before "@" in upper case first
    /// letter.
    Session join(const std::string &email, const std::string &role = "Estimator");

    server::Db &db() { return *m_db; }
    server::Config &config() { return m_config; }
    /// Lets so much time pass for leases and time-outs.
    void pass(server::Time milliseconds) { m_clock->advance(milliseconds); }
    /// No time passes but by `pass`.
    void stopClock() { m_clock->stop(); }
    void setWallOff(server::Time milliseconds) { m_clock->setWallOff(milliseconds); }
    const server::Environment &environment() const { return *m_environment; }
    server::Dispatcher &dispatcher() { return *m_dispatcher; }
    server::DbPool &pool() { return *m_pool; }
    std::string folder() const { return m_folder.path; }

    struct Sent {
        std::string type, command, sender, content;
    };
    /// The announcements since the last call, in order; a record that the publisher makes when it
    /// sends is made now.
    std::vector<Sent> takeSent();

    server::Reply dispatch(const server::ExchangePtr &exchange);

private:
    friend class Session;
    TemporaryFolder m_folder;
    server::Config m_config;
    std::unique_ptr<server::Db> m_db;
    std::unique_ptr<MovableClock> m_clock;
    std::unique_ptr<server::Environment> m_environment;
    std::unique_ptr<server::DbPool> m_pool;
    std::unique_ptr<server::Dispatcher> m_dispatcher;
    std::int64_t m_lastSent = 0;
    std::uint64_t m_connections = 0;
};

/// "{0000…-n}": a GUID for a test's n-th project.
std::string guidOf(int n);

/// A change log's archive: one entry of that name.
std::string logArchive(const std::string &entry, const std::string &content);

/// The request "newproject" for that user.
Message newProject(const Session &creator, const std::string &guid, const std::string &name,
    const std::string &kind = "Tender");

/// A whole save as clients make it: lock, both uploads, merge, release. The merge's answer.
Answer save(const Session &session, const std::string &guid, std::int64_t version,
    const std::string &content = "change");

/// Gives users levels in a project: {"ben@example.com", "1,1,1,1"}.
Answer permit(const Session &owner, const std::string &guid,
    const std::vector<std::pair<std::string, std::string>> &levels);

} // namespace kvx::test
