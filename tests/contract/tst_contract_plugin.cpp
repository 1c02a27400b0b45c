#include "ContractFile.h"
#include "PluginCalls.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <gtest/gtest.h>

// Every recorded exchange against the plug-in's managers: the call must send the recorded request,
// and make of the recorded reply what the file says.

using namespace kvx::test;

namespace {

/// QJsonValue to the comparer's form; the array keeps a bare value legal JSON.
rapidjson::Document converted(const QJsonValue &value)
{
    return parsedJson(
        QJsonDocument(QJsonArray { value }).toJson(QJsonDocument::Compact).toStdString());
}

std::vector<kvx::test::Exchange> callsOfThePlugin()
{
    std::vector<kvx::test::Exchange> calls;
    for (const kvx::test::Exchange &exchange : allExchanges()) {
        if (exchange.has("call"))
            calls.push_back(exchange);
    }
    return calls;
}

class PluginContract : public testing::TestWithParam<kvx::test::Exchange> { };

TEST_P(PluginContract, SendsAndUnderstands)
{
    const kvx::test::Exchange &exchange = GetParam();
    const rapidjson::Value &call = exchange["call"];
    const CallOutcome outcome = performCall(exchange);

    const rapidjson::Value &recorded = exchange["request"];
    const std::string wanted = recorded.HasMember("service") ? textOf(recorded["service"]) : "";
    QList<QJsonObject> ofService;
    for (const QJsonObject &request : outcome.requests) {
        const std::string service
            = request.value(QLatin1String("service")).toString().toStdString();
        if (service == wanted)
            ofService.append(request);
        else
            EXPECT_TRUE(call.HasMember("others") && call["others"].HasMember(service.c_str()))
                << "it also asked for \"" << service << '"';
    }
    const int occurrence = call.HasMember("occurrence") ? call["occurrence"].GetInt() : 1;
    ASSERT_GE(ofService.size(), occurrence) << "the request was not sent";

    EXPECT_EQ(outcome.url.toStdString(), "http://127.0.0.1:8090" + exchange.path());
    const auto sent = converted(ofService.at(occurrence - 1));
    for (const std::string &line : differences(recorded, sent[0]))
        ADD_FAILURE() << "request " << line;
    for (const std::string &line : differences(call["result"], converted(outcome.result)[0]))
        ADD_FAILURE() << "result " << line;
}

INSTANTIATE_TEST_SUITE_P(Exchanges, PluginContract, testing::ValuesIn(callsOfThePlugin()),
    [](const auto &info) { return info.param.fullTestName(); });

} // namespace

TEST(PluginCalls, EveryOperationIsCalledByAnExchange)
{
    QStringList unused = knownOperations();
    for (const kvx::test::Exchange &exchange : callsOfThePlugin())
        unused.removeAll(QString::fromStdString(textOf(exchange["call"]["operation"])));
    EXPECT_TRUE(unused.isEmpty()) << unused.join(QLatin1Char(' ')).toStdString();
}
