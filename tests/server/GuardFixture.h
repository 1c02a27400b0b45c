#pragma once

#include "BrokerClient.h"
#include "support/Broker.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"

#include <chrono>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kvx::test {

/// Waits for the condition; false when the time is over.
template <class Condition> bool eventually(Condition condition, int seconds = 20);

/// A broker with its guard, a server with its account there, and three users: Anna and Ben by
/// project rights only, the administrator by role.
class ServerGuard : public testing::Test {
protected:
    explicit ServerGuard(std::map<std::string, std::string> settings = {});

    static Broker::Options guarded();
    ServerProcess::Options withAccount(std::map<std::string, std::string> settings) const;
    void awaitGuard(const ServerProcess &which) const;

    std::unique_ptr<HttpClient> login(
        const std::string &email, const std::vector<std::string> &headers = {}) const;
    std::unique_ptr<BrokerClient> listen(const std::string &clientId) const;
    void logout(HttpClient &session, const std::string &email) const;

    /// Asks for a service in the name of that user; must succeed.
    static void ask(HttpClient &session, const std::string &email, const std::string &service,
        std::vector<std::pair<std::string, std::string>> members);
    static void newProject(HttpClient &session, const std::string &email, const std::string &name);
    static void rename(HttpClient &session, const std::string &email, const std::string &oldName,
        const std::string &newName);
    /// Replaces the project's rights: Anna, who made it, and whoever is named.
    static void permit(HttpClient &session, const std::vector<std::string> &emails);
    /// A message for everybody.
    void announceToAll();
    /// What the n-th message since the fixture was made, in its own counting from 1, has in it; the
    /// fixture's own is the first.
    static std::string numbered(int n);

    static constexpr char anna[] = "anna@example.com";
    static constexpr char ben[] = "ben@example.com";
    static constexpr char admin[] = "admin@localhost";
    static constexpr char password[] = "guarded 1";
    static constexpr char forAll[] = "notifymsg_role";

    Broker broker;
    ServerProcess server;

private:
    bool m_assigned = false;
};

/// A flood of messages that shall disturb nobody counts as one from here on.
constexpr double floodPerSecond = 1000;
/// The most that what took so long in quiet may take beside a flood, in milliseconds; far above
/// what is measured (docs/performance.md), far below what a person calls slow.
inline double besideAFlood(double quiet)
{
    return 10 * quiet + 200;
}

template <class Condition> bool eventually(Condition condition, int seconds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace kvx::test
