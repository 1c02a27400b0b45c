#include "ContractFile.h"
#include "JsonPlaces.h"
#include "PluginCalls.h"
#include "support/Watchdog.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <cstdio>
#include <gtest/gtest.h>
#include <rapidjson/pointer.h>

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

/// The exchange with another value at a place of its reply.
kvx::test::Exchange answeredWith(
    const kvx::test::Exchange &exchange, const std::string &place, const char *value)
{
    auto json = std::make_shared<rapidjson::Document>();
    json->CopyFrom(*exchange.json, json->GetAllocator());
    rapidjson::Value other(parsedJson(value), json->GetAllocator());
    rapidjson::Pointer(("/reply" + place).c_str()).Set(*json, other);
    kvx::test::Exchange changed = exchange;
    changed.file = json;
    changed.json = json.get();
    return changed;
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

/// By default each ninth value, another ninth with each key.
TEST(PluginCalls, AnyTypeInAnyKeyOfAReplyHasAnOrdinaryResult)
{
    Watchdog::allow(600);
    const bool everything = qEnvironmentVariableIsSet("KVX_TEST_LONG");
    std::size_t turn = 0;
    int cases = 0;
    int keys = 0;
    for (const kvx::test::Exchange &exchange : callsOfThePlugin()) {
        if (exchange.httpStatus() != 200)
            continue;
        const QJsonValue ordinary = performCall(exchange).result;
        for (const std::string &place : placesIn(exchange["reply"])) {
            ++keys;
            for (const char *value : valuesOfEachType()) {
                if (turn++ % 9 != 0 && !everything)
                    continue;
                SCOPED_TRACE(exchange.fullTestName() + place + " = " + value);
                ++cases;
                const QJsonValue result = performCall(answeredWith(exchange, place, value)).result;
                EXPECT_EQ(result.type(), ordinary.type());
                // What is no number is no status, and so no success.
                if (place == "/statuscode" && !parsedJson(value).IsNumber()) {
                    EXPECT_EQ(compactJson(converted(result)),
                        compactJson(
                            converted(performCall(answeredWith(exchange, place, "0")).result)));
                }
            }
        }
    }
    std::printf("%d cases in %d keys\n", cases, keys);
    EXPECT_GT(keys, 300);
    EXPECT_GE(cases, keys);
}
