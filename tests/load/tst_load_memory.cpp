#include "ProcessFigures.h"
#include "support/HttpClient.h"
#include "support/ServerProcess.h"

#include <gtest/gtest.h>
#include <memory>

namespace kvx::test {

namespace {

// A sanitizer keeps what is freed for a while, to find who still reads it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double allowedMiB = 1000;
#else
constexpr double allowedMiB = 8;
#endif

constexpr int people = 60;
constexpr int projects = 500;

std::string guidOf(int number)
{
    std::string digits = std::to_string(number);
    digits.insert(0, 12 - digits.size(), '0');
    return "{11111111-2222-3333-4444-" + digits + "}";
}

std::string request(const char *service, const std::string &email,
    std::vector<std::pair<std::string, std::string>> keys = {})
{
    keys.emplace_back("service", jsonQuoted(service));
    keys.emplace_back("Email", jsonQuoted(email));
    return jsonObject(keys);
}

} // namespace

TEST(LoadMemory, WhoIsIdleKeepsNothingOfWhatWasSent)
{
    ServerProcess::Options options;
    options.settings = { { "session.perUser", "100" } };
    ServerProcess server(options);
    const std::string email = server.adminEmail();
    std::vector<std::unique_ptr<HttpClient>> clients;
    for (int i = 0; i < people; ++i) {
        clients.push_back(std::make_unique<HttpClient>(server.url()));
        ASSERT_EQ(
            clients.back()->login(email, server.adminPassword(), std::to_string(i)).statusCode(),
            1);
    }
    for (int i = 0; i < projects; ++i) {
        const std::string created = request("newproject", email,
            { { "Type", "\"Tender\"" }, { "Name", jsonQuoted("School " + std::to_string(i)) },
                { "ProjectGUID", jsonQuoted(guidOf(i)) }, { "CreatorName", "\"x\"" },
                { "CreatorEmail", jsonQuoted(email) }, { "Amount", "\"\"" },
                { "ProjectState", "0" } });
        ASSERT_EQ(clients[0]->post(created).statusCode(), 1);
    }
    const std::string bytes(1 << 20, 'x');
    const std::string kept = request("upload", email, { { "FileName", "\"plan.pdf\"" } });
    const std::string refused
        = request("upload", email, { { "FileName", jsonQuoted(guidOf(0) + "_log0") } });
    const auto use = [&](HttpClient &client) {
        const HttpReply list = client.post(request("projectlistsynctolocal", email));
        EXPECT_EQ(list.statusCode(), 1);
        EXPECT_GT(list.body.size(), 200'000u);
        EXPECT_EQ(client.upload(kept, bytes).statusCode(), 1);
        EXPECT_EQ(client.upload(refused, bytes).statusCode(), 600) << "without a save lock";
    };
    for (int i = 0; i < 6; ++i)
        use(*clients[i]);
    const double before = figuresOf(server.pid()).memoryMiB;
    for (int i = 6; i < people; ++i)
        use(*clients[i]);
    const double after = figuresOf(server.pid()).memoryMiB;
    EXPECT_LT(after - before, allowedMiB) << before << " MiB, then " << after;
}

} // namespace kvx::test
