#include "ContractFile.h"
#include "support/LoopbackServer.h"
#include "support/Watchdog.h"

#include <KVXNetwork/KVXNetwork.h>
#include <QJsonObject>
#include <QString>
#include <cstdio>

using namespace kvx::test;

/// Of every recorded reply, each beginning that is not the whole: with its length told, as a peer
/// that dies leaves it.
TEST(Replies, ThatAreCutAtAnyByteAreNone)
{
    Watchdog::allow(600);
    const std::size_t step = qEnvironmentVariableIsSet("KVX_TEST_LONG") ? 1 : 7;
    KVXNetwork *network = KVXNetwork::getInstance();
    // How a reply is read does not depend on the service, but where files are moved.
    const QJsonObject request { { QStringLiteral("service"), QStringLiteral("getroles") } };
    std::size_t cases = 0;
    for (const Exchange &exchange : allExchanges()) {
        if (!exchange.has("reply") || exchange.httpStatus() != 200)
            continue;
        LoopbackServer server; // one for each: its threads end with it
        const QString url = QString::fromStdString(server.url());
        const std::string whole = LoopbackServer::response(filledJson(exchange["reply"]));
        // Not every beginning of every reply, but of all together each place.
        for (std::size_t size = cases % step; size < whole.size(); size += step, ++cases) {
            server.handle("/kvx/service", LoopbackServer::raw(whole.substr(0, size)));
            QJsonObject reply { { QStringLiteral("old"), 1 } };
            ASSERT_FALSE(network->post(url, request, reply, nullptr, nullptr))
                << exchange.fullTestName() << ", " << size << " of " << whole.size();
            ASSERT_TRUE(reply.isEmpty()) << exchange.fullTestName() << ", " << size;
        }
        server.handle("/kvx/service", LoopbackServer::raw(whole));
        QJsonObject reply;
        ASSERT_TRUE(network->post(url, request, reply, nullptr, nullptr))
            << exchange.fullTestName() << network->lastError().toStdString();
        ASSERT_FALSE(reply.isEmpty());
    }
    std::printf("%zu beginnings\n", cases);
    EXPECT_GT(cases, 1000u);
}
