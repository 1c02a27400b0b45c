#include "support/HttpClient.h"
#include "support/ServerProcess.h"
#include "support/WaitFor.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>

using kvx::test::HttpClient;
using kvx::test::HttpReply;
using kvx::test::jsonObject;
using kvx::test::jsonQuoted;
using kvx::test::RawConnection;
using kvx::test::ServerProcess;
using kvx::test::waitFor;

namespace {

const std::string getRoles = R"({"service":"getroles"})";

/// One server for all cases; short limits so that slow clients are told soon.
class ServerHttp : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ServerProcess::Options options;
        options.settings = { { "limits.headerTime", "700ms" }, { "limits.bodyTime", "700ms" },
            { "limits.keepAlive", "1500ms" }, { "limits.upload", "2MiB" } };
        server = new ServerProcess(options);
    }
    static void TearDownTestSuite()
    {
        delete server;
        server = nullptr;
    }

    static std::string exchange(const std::string &bytes)
    {
        RawConnection connection(server->host(), server->port());
        connection.send(bytes);
        return connection.readAll();
    }

    static std::string postHead(const std::string &rest)
    {
        return "POST /kvx/service HTTP/1.1\r\nHost: a\r\nContent-Type: application/json\r\n" + rest;
    }

    static ServerProcess *server;
};

ServerProcess *ServerHttp::server = nullptr;

TEST_F(ServerHttp, EveryReplyCarriesEpochRequestNumberAndNoStore)
{
    HttpClient client(server->url());
    const HttpReply first = client.post(getRoles);
    const HttpReply second = client.post(getRoles);
    EXPECT_EQ(first.status, 200);
    EXPECT_EQ(first.statusCode(), 2);
    EXPECT_EQ(first.header("kvx-epoch").size(), 36U);
    EXPECT_EQ(first.header("kvx-epoch"), second.header("kvx-epoch"));
    EXPECT_FALSE(first.header("kvx-request").empty());
    EXPECT_NE(first.header("kvx-request"), second.header("kvx-request"));
    EXPECT_EQ(first.header("cache-control"), "no-store");
    EXPECT_EQ(first.header("content-type"), "application/json");
}

TEST_F(ServerHttp, TheMarkOfARequestComesBackWithItsReply)
{
    HttpClient client(server->url());
    const auto markOf = [&](const std::string &mark) {
        return client
            .postTo("/kvx/service", getRoles, "application/json", { "Kvx-Exchange: " + mark })
            .header("kvx-exchange");
    };
    EXPECT_EQ(markOf("6f1d-Second"), "6f1d-Second");
    EXPECT_EQ(markOf(std::string(64, 'a')), std::string(64, 'a'));
    EXPECT_EQ(markOf(std::string(65, 'a')), "");
    EXPECT_EQ(markOf("two words"), "");
    EXPECT_EQ(client.post(getRoles).header("kvx-exchange"), "") << "not that of the one before";
}

TEST_F(ServerHttp, ARefusalCarriesWordSentenceAndRequestNumber)
{
    HttpClient client(server->url());
    const HttpReply reply = client.post(getRoles);
    EXPECT_EQ(reply.member("error"), "NotLoggedIn");
    EXPECT_EQ(reply.member("message"),
        "You are not logged in, or your session has ended. Please log in again.");
    EXPECT_EQ(reply.member("requestId"), reply.header("kvx-request"));
}

TEST_F(ServerHttp, TheServerSaysItsNameAndNothingElseToASearch)
{
    HttpClient client(server->url());
    for (const HttpReply &reply :
        { client.get("/kvx/v2/api/server"), client.postTo("/kvx/v2/api/server", "") }) {
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(reply.body,
            R"({"statuscode":1,"product":"kvx-server","name":"kvx-server","api":["1"]})");
    }
}

TEST_F(ServerHttp, AnUnknownServiceIsNamed)
{
    HttpClient client(server->url());
    const HttpReply reply = client.post(R"({"service":"nosuch"})");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.statusCode(), 101);
    EXPECT_EQ(reply.member("message"), "This server does not know the service \"nosuch\".");
}

TEST_F(ServerHttp, WhatIsNotARequestIsRefusedWith400)
{
    HttpClient client(server->url());
    const std::string deep
        = R"({"service":"getroles","a":)" + std::string(70, '[') + std::string(70, ']') + "}";
    std::string wide = R"({"service":"getroles","a":[)";
    for (int i = 0; i < 10'001; ++i)
        wide += i ? ",0" : "0";
    wide += "]}";
    for (const std::string &body : { std::string("{"), std::string("[]"), std::string("\"x\""),
             std::string(), std::string("{}"), std::string(R"({"service":7})"),
             std::string(R"({"service":"getroles"} x)"),
             std::string(R"({"service":"getroles","a":1,"a":2})"),
             std::string(R"({"service":"getroles","a":{"b":1,"b":2}})"),
             std::string("{\"service\":\"getroles\",\"a\":\"\xff\"}"),
             std::string(R"({"service":"getroles","a":"\ud800"})"),
             std::string(R"({"service":"getroles","a":NaN})"), deep, wide }) {
        const HttpReply reply = client.postTo("/kvx/service", body);
        EXPECT_EQ(reply.status, 400) << body.substr(0, 60);
        EXPECT_EQ(reply.statusCode(), 100) << body.substr(0, 60);
    }
    EXPECT_EQ(client.post(R"({"service":"getroles","unknown":[1,2,{"x":null}]})").statusCode(), 2);
}

TEST_F(ServerHttp, AMissingOrIllTypedKeyIsNamed)
{
    HttpClient client(server->url());
    const HttpReply missing = client.post(R"({"service":"login"})");
    EXPECT_EQ(missing.status, 200);
    EXPECT_EQ(missing.statusCode(), 100);
    EXPECT_EQ(missing.member("message"), "The request is not valid: \"Email\" is missing.");
    const HttpReply wrong = client.post(R"({"service":"login","Email":5})");
    EXPECT_EQ(wrong.member("message"), "The request is not valid: \"Email\" must be a text.");
}

TEST_F(ServerHttp, UnknownPathsMethodsAndTypesHaveTheirStatus)
{
    HttpClient client(server->url());
    EXPECT_EQ(client.postTo("/kvx/nothing", getRoles).status, 404);
    EXPECT_EQ(client.postTo("/", getRoles).status, 404);
    EXPECT_EQ(client.postTo("/kvx/service/../../etc/passwd", getRoles).status, 404);
    EXPECT_EQ(client.get("/livez").status, 404) << "health stands on the other listener only";
    EXPECT_EQ(client.get("/kvx/service").status, 405);
    EXPECT_EQ(client.postTo("/kvx/service", getRoles, "text/plain").status, 415);
    EXPECT_EQ(
        client.postTo("/kvx/service", getRoles, "application/json; charset=utf-8").status, 200);
    for (const char *method : { "PUT", "DELETE", "TRACE", "CONNECT", "OPTIONS", "BREW" }) {
        const std::string reply
            = exchange(std::string(method) + " /kvx/service HTTP/1.1\r\nHost: a\r\n\r\n");
        EXPECT_NE(reply.find("HTTP/1.1 405"), std::string::npos) << method << ": " << reply;
    }
}

TEST_F(ServerHttp, ARequestWithoutLengthIs411)
{
    const std::string reply = exchange(postHead("\r\n"));
    EXPECT_NE(reply.find("HTTP/1.1 411"), std::string::npos) << reply;
    EXPECT_NE(reply.find("\"statuscode\":100"), std::string::npos);
}

TEST_F(ServerHttp, TwoStatementsOfTheLengthAreRefusedAndTheConnectionClosed)
{
    const std::string reply
        = exchange(postHead("Content-Length: 24\r\nTransfer-Encoding: "
                            "chunked\r\n\r\n18\r\n{\"service\":\"getroles\"}\r\n0\r\n\r\n"));
    EXPECT_NE(reply.find("HTTP/1.1 400"), std::string::npos) << reply;
    EXPECT_EQ(reply.find("HTTP/1.1", 5), std::string::npos)
        << "nothing after it is read as a request";
    const std::string twice
        = exchange(postHead("Content-Length: 2\r\nContent-Length: 22\r\n\r\n{}"));
    EXPECT_NE(twice.find("HTTP/1.1 400"), std::string::npos) << twice;
}

TEST_F(ServerHttp, GarbageIsAnswered400AndClosed)
{
    for (const std::string &bytes : { std::string("\x16\x03\x01\x02\x05\x01\r\n\r\n"),
             std::string("GET\r\n\r\n"), std::string("POST /kvx/service HTTP/9.9\r\n\r\n"),
             std::string("POST /kvx/service HTTP/1.1\r\nBad Header\r\n\r\n"),
             postHead("Content-Length: -5\r\n\r\n"),
             postHead("Content-Length: 99999999999999999999999\r\n\r\n"),
             postHead("Transfer-Encoding: chunked\r\n\r\nZZZ\r\n") }) {
        const std::string reply = exchange(bytes);
        EXPECT_NE(reply.find("HTTP/1.1 400"), std::string::npos) << bytes << " -> " << reply;
    }
}

TEST_F(ServerHttp, ALargeHeadIs431)
{
    const std::string reply = exchange(postHead("X-Long: " + std::string(9000, 'x') + "\r\n\r\n"));
    EXPECT_NE(reply.find("HTTP/1.1 431"), std::string::npos) << reply.substr(0, 200);
}

TEST_F(ServerHttp, ALargeBodyIs413WithAndWithoutStatedLength)
{
    HttpClient client(server->url());
    const std::string large
        = R"({"service":"getroles","a":")" + std::string(1'100'000, 'x') + "\"}";
    EXPECT_EQ(client.post(large).status, 413);
    EXPECT_EQ(client.login(server->adminEmail(), server->adminPassword()).statusCode(), 1);
    const HttpReply loggedIn = client.post(large);
    EXPECT_EQ(loggedIn.status, 413) << "getroles takes no large body";
    EXPECT_EQ(loggedIn.statusCode(), 102);
    const HttpReply chunked = client.postTo(
        "/kvx/service", large, "application/json", { "Transfer-Encoding: chunked" });
    EXPECT_EQ(chunked.status, 413);
    EXPECT_EQ(client.post(std::string(std::size_t { 17 } << 20, 'x')).status, 413);
    EXPECT_EQ(client.post(getRoles).statusCode(), 1) << "the server goes on";
}

TEST_F(ServerHttp, ChunkedRequestsAreRead)
{
    RawConnection connection(server->host(), server->port());
    connection.send(postHead("Transfer-Encoding: chunked\r\n\r\n"));
    for (const char byte : getRoles)
        connection.send("1\r\n" + std::string(1, byte) + "\r\n");
    connection.send("0\r\n\r\n");
    EXPECT_NE(connection.readUntil("\"statuscode\":2").find("HTTP/1.1 200"), std::string::npos);
}

TEST_F(ServerHttp, RequestsSentInOneGoAreAnsweredInOrder)
{
    RawConnection connection(server->host(), server->port());
    const std::string one
        = postHead("Content-Length: " + std::to_string(getRoles.size()) + "\r\n\r\n" + getRoles);
    const std::string other = R"({"service":"nosuch"})";
    const std::string two
        = postHead("Content-Length: " + std::to_string(other.size()) + "\r\n\r\n" + other);
    connection.send(one + two + one);
    std::string replies;
    for (int i = 0; i < 3; ++i)
        replies += connection.readUntil("requestId\":");
    replies += connection.readUntil("}", 1000);
    const std::size_t first = replies.find("\"statuscode\":2,");
    const std::size_t second = replies.find("\"statuscode\":101,");
    ASSERT_NE(first, std::string::npos) << replies;
    ASSERT_NE(second, std::string::npos) << replies;
    EXPECT_LT(first, second);
    EXPECT_NE(replies.find("\"statuscode\":2,", second), std::string::npos) << replies;
}

TEST_F(ServerHttp, AHeadThatTricklesIsEndedInTime)
{
    RawConnection connection(server->host(), server->port());
    connection.send("POST /kvx/service HTTP/1.1\r\nHost: a\r\n");
    std::string reply;
    for (int i = 0; i < 30 && reply.empty(); ++i) {
        connection.send("X-" + std::to_string(i) + ": y\r\n");
        reply = connection.readUntil("408", 100);
    }
    EXPECT_NE(reply.find("HTTP/1.1 408"), std::string::npos) << reply;
    EXPECT_TRUE(connection.waitForClose());
}

TEST_F(ServerHttp, ABodyThatStopsIs408)
{
    RawConnection connection(server->host(), server->port());
    connection.send(postHead("Content-Length: 100\r\n\r\n{\"service\":"));
    EXPECT_NE(connection.readUntil("408").find("HTTP/1.1 408"), std::string::npos);
    EXPECT_TRUE(connection.waitForClose());
}

TEST_F(ServerHttp, ABodyThatDripsIs408)
{
    RawConnection connection(server->host(), server->port());
    connection.send(postHead("Content-Length: 100000\r\n\r\n"));
    std::string reply;
    for (int i = 0; i < 100 && reply.empty(); ++i) {
        connection.send("x");
        reply = connection.readUntil("408", 100);
    }
    EXPECT_NE(reply.find("HTTP/1.1 408"), std::string::npos) << reply;
}

TEST_F(ServerHttp, AnIdleConnectionIsClosedSilently)
{
    RawConnection connection(server->host(), server->port());
    connection.send(
        postHead("Content-Length: " + std::to_string(getRoles.size()) + "\r\n\r\n" + getRoles));
    EXPECT_NE(connection.readUntil("}").find("\"statuscode\":2"), std::string::npos);
    EXPECT_EQ(connection.readAll(5000), "");
    RawConnection silent(server->host(), server->port());
    EXPECT_EQ(silent.readAll(5000), "");
}

TEST_F(ServerHttp, ARequestCutOffDoesNoHarm)
{
    const std::string whole
        = postHead("Content-Length: " + std::to_string(getRoles.size()) + "\r\n\r\n" + getRoles);
    for (std::size_t length = 0; length < whole.size(); length += 3) {
        RawConnection connection(server->host(), server->port());
        connection.send(whole.substr(0, length));
    }
    HttpClient client(server->url());
    EXPECT_EQ(client.post(getRoles).statusCode(), 2);
}

TEST_F(ServerHttp, AClientThatEndsItsSideStillGetsItsReply)
{
    RawConnection connection(server->host(), server->port());
    connection.send(
        postHead("Content-Length: " + std::to_string(getRoles.size()) + "\r\n\r\n" + getRoles));
    connection.closeSending();
    EXPECT_NE(connection.readAll().find("\"statuscode\":2"), std::string::npos);
}

TEST_F(ServerHttp, OldClientsAreServedAndClosed)
{
    const std::string reply
        = exchange("POST /kvx/service HTTP/1.0\r\nContent-Type: application/json\r\n"
                   "Content-Length: "
            + std::to_string(getRoles.size()) + "\r\n\r\n" + getRoles);
    EXPECT_NE(reply.find("200 OK"), std::string::npos);
    EXPECT_NE(reply.find("Connection: close"), std::string::npos);
}

TEST_F(ServerHttp, AnUploadWithoutSessionIsRefusedBeforeItsBody)
{
    RawConnection connection(server->host(), server->port());
    connection.send(
        "POST /kvx/service HTTP/1.1\r\nHost: a\r\nExpect: 100-continue\r\nContent-Length: 5000\r\n"
        "Content-Type: multipart/form-data; boundary=b\r\n\r\n");
    const std::string reply = connection.readAll();
    EXPECT_EQ(reply.find("100 Continue"), std::string::npos);
    EXPECT_NE(reply.find("\"statuscode\":2"), std::string::npos) << reply;
}

TEST_F(ServerHttp, ARefusedUploadIsToldAndTheConnectionStays)
{
    HttpClient client(server->url());
    ASSERT_EQ(client.login(server->adminEmail(), server->adminPassword()).statusCode(), 1);
    const HttpReply bad
        = client.upload(R"({"service":"upload","FileName":"../x"})", std::string(900'000, 'a'));
    EXPECT_EQ(bad.status, 200) << bad.error;
    EXPECT_EQ(bad.statusCode(), 100);
    const HttpReply notAnUpload = client.upload(getRoles, "abc");
    EXPECT_EQ(notAnUpload.statusCode(), 100);
    EXPECT_EQ(client.post(getRoles).statusCode(), 1);
}

TEST_F(ServerHttp, AFileGoesUpAndComesBackWithItsHeaders)
{
    HttpClient client(server->url());
    ASSERT_EQ(client.login(server->adminEmail(), server->adminPassword()).statusCode(), 1);
    std::string bytes;
    for (int i = 0; i < 300'000; ++i)
        bytes += static_cast<char>((i * 7) ^ (i >> 8));
    const HttpReply up = client.upload(R"({"service":"upload","FileName":"notes.bin"})", bytes);
    ASSERT_EQ(up.statusCode(), 1) << up.body << up.error;

    const std::string ask = R"({"service":"download","FileName":"notes.bin"})";
    const HttpReply whole = client.download(ask);
    EXPECT_EQ(whole.status, 200);
    EXPECT_EQ(whole.statusCode(), 1);
    EXPECT_TRUE(whole.body == bytes);
    EXPECT_EQ(whole.header("content-type"), "application/octet-stream");
    EXPECT_EQ(whole.header("content-length"), std::to_string(bytes.size()));
    EXPECT_EQ(whole.header("repr-digest").rfind("sha-256=:", 0), 0U);
    const std::string tag = whole.header("etag");
    EXPECT_EQ(tag.size(), 66U);

    const HttpReply part = client.download(ask, { "Range: bytes=100-199", "If-Range: " + tag });
    EXPECT_EQ(part.status, 206);
    EXPECT_TRUE(part.body == bytes.substr(100, 100));
    EXPECT_EQ(part.header("content-range"), "bytes 100-199/" + std::to_string(bytes.size()));
    const HttpReply other = client.download(ask, { "Range: bytes=100-199", "If-Range: \"0\"" });
    EXPECT_EQ(other.status, 200) << "other contents: the whole file";
    EXPECT_TRUE(other.body == bytes);
    EXPECT_EQ(client.download(ask, { "Range: bytes=900000-" }).status, 416);

    const HttpReply missing = client.download(R"({"service":"download","FileName":"none.bin"})");
    EXPECT_EQ(missing.statusCode(), 606);
    EXPECT_EQ(missing.header("kvx-reply"), "");
    EXPECT_EQ(missing.header("content-type"), "application/json");
}

TEST_F(ServerHttp, AnUploadOverTheLimitIs413)
{
    HttpClient client(server->url());
    ASSERT_EQ(client.login(server->adminEmail(), server->adminPassword()).statusCode(), 1);
    const std::string bytes(std::size_t { 3 } << 20, 'x');
    const HttpReply reply = client.upload(R"({"service":"upload","FileName":"big.bin"})", bytes);
    EXPECT_TRUE(reply.status == 413 || reply.status == 0) << reply.status;
    EXPECT_EQ(client.post(R"({"service":"hasupload","FileName":"big.bin"})").statusCode(), 606);
}

TEST_F(ServerHttp, FormsThatAreNoUploadAre400)
{
    HttpClient client(server->url());
    ASSERT_EQ(client.login(server->adminEmail(), server->adminPassword()).statusCode(), 1);
    const std::string type = "multipart/form-data; boundary=b";
    const std::string request = "--b\r\nContent-Disposition: form-data; name=\"jsonPart\"\r\n\r\n"
                                R"({"service":"upload","FileName":"x.bin"})"
                                "\r\n";
    const std::string data
        = "--b\r\nContent-Disposition: form-data; name=\"dataPart\"\r\n\r\nabc\r\n";
    for (const std::string &body : { std::string("nothing"),
             std::string("--b\r\n\r\n\r\n--b--\r\n"), data + request + "--b--\r\n",
             request + "--b--\r\n", request + data, request + data + data + "--b--\r\n",
             "--b\r\nContent-Disposition: form-data; name=\"jsonPart\"\r\n\r\n"
                 + std::string(70'000, 'x') }) {
        const HttpReply reply = client.postTo("/kvx/service", body, type);
        EXPECT_EQ(reply.status, 400) << body.substr(0, 300) << " -> " << reply.body << reply.error;
        EXPECT_EQ(reply.statusCode(), 100);
    }
    EXPECT_EQ(client.postTo("/kvx/service", request + data + "--b--\r\n", type).statusCode(), 1);
}

TEST_F(ServerHttp, HealthPagesSayWhatIsWell)
{
    HttpClient client(server->adminUrl());
    const HttpReply live = client.get("/livez");
    EXPECT_EQ(live.status, 200);
    const HttpReply ready = client.get("/readyz");
    EXPECT_EQ(ready.status, 200) << "a broker away is no reason";
    for (const char *line :
        { "database: ok\n", "store: ok\n", "schema: ok\n", "publisher: ok\n", "broker: away\n" })
        EXPECT_NE(ready.body.find(line), std::string::npos) << ready.body;
    EXPECT_EQ(client.get("/kvx/service").status, 404);
}

TEST_F(ServerHttp, TheLogNamesUserServiceAndStatusAndNoSecret)
{
    HttpClient client(server->url());
    client.login(server->adminEmail(), "not the password");
    const HttpReply reply = client.login(server->adminEmail(), server->adminPassword());
    const std::string log = server->logText();
    const std::size_t at = log.find("id=" + reply.header("kvx-request"));
    ASSERT_NE(at, std::string::npos);
    const std::string line = log.substr(at, log.find('\n', at) - at);
    EXPECT_NE(
        line.find("user=admin@localhost service=login project=- status=1 ms="), std::string::npos)
        << line;
    EXPECT_NE(line.find(" bytes=" + std::to_string(reply.body.size())), std::string::npos) << line;
    EXPECT_EQ(log.find("not the password"), std::string::npos);
    EXPECT_EQ(log.find(server->adminPassword()), std::string::npos);
    EXPECT_EQ(log.find(client.cookie()), std::string::npos);
}

/// Connections that the server has taken: each was answered. Earlier ones may still be counted when
/// the first are made.
std::vector<std::unique_ptr<RawConnection>> served(const ServerProcess &server, std::size_t count)
{
    std::vector<std::unique_ptr<RawConnection>> taken;
    EXPECT_TRUE(waitFor([&] {
        auto connection = std::make_unique<RawConnection>(server.host(), server.port());
        connection->send("POST /kvx/service HTTP/1.1\r\nHost: a\r\nContent-Type: "
                         "application/json\r\nContent-Length: 22\r\n\r\n"
            + getRoles);
        if (connection->readUntil("}").find("\"statuscode\":2") != std::string::npos)
            taken.push_back(std::move(connection));
        return taken.size() == count;
    }));
    return taken;
}

std::size_t countIn(const std::string &text, const std::string &part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

std::size_t openFilesOf(pid_t process)
{
    const std::filesystem::directory_iterator files("/proc/" + std::to_string(process) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

struct ServerHttpFull : testing::Test {
    static ServerProcess::Options twoConnections()
    {
        ServerProcess::Options options;
        options.settings = { { "limits.connections", "2" } };
        return options;
    }
    ServerProcess server { twoConnections() };
    std::vector<std::unique_ptr<RawConnection>> kept;

    void fill() { kept = served(server, 2); }
    std::size_t warnings()
    {
        return countIn(server.logText(), " warning connections refused limit=limits.connections ");
    }
};

TEST_F(ServerHttpFull, OneConnectionTooManyIsToldSoAsInAnyRefusal)
{
    fill();
    RawConnection extra(server.host(), server.port());
    const std::string reply = extra.readAll();
    EXPECT_EQ(reply.rfind("HTTP/1.1 503 Service Unavailable\r\n", 0), 0u) << reply;
    for (const char *part : { "\r\nContent-Type: application/json\r\n",
             "\r\nCache-Control: no-store\r\n", "\r\nConnection: close\r\n",
             "{\"statuscode\":103,\"error\":\"Busy\",\"message\":\"The server is busy. Please try "
             "again in a moment.\",\"requestId\":\"" })
        EXPECT_NE(reply.find(part), std::string::npos) << part << " in " << reply;
    const auto value = [&reply](const std::string &name) {
        const std::size_t at = reply.find(name) + name.size();
        return reply.substr(at, reply.find_first_of("\r\"", at) - at);
    };
    EXPECT_EQ(value("Kvx-Epoch: ").size(), 36u);
    const std::string id = value("Kvx-Request: ");
    EXPECT_EQ(id, value("\"requestId\":\""));
    EXPECT_NE(server.logText().find(" info request id=" + id), std::string::npos);

    HttpClient health(server.adminUrl());
    EXPECT_EQ(health.get("/livez").status, 200) << "whoever watches it is not shut out";
    EXPECT_EQ(health.get("/readyz").status, 200);
}

TEST_F(ServerHttpFull, WhatIsSentToARefusalIsReadSoThatTheReplyIsNotLost)
{
    fill();
    RawConnection extra(server.host(), server.port());
    EXPECT_NE(extra.readUntil("requestId").find("HTTP/1.1 503"), std::string::npos);
    for (int i = 0; i < 8; ++i)
        EXPECT_TRUE(extra.send(std::string(60'000, 'x'))) << i;
    extra.send(std::string(2'000'000, 'x'));
    EXPECT_TRUE(extra.waitForClose()) << "not for ever";
}

TEST_F(ServerHttpFull, TheLogTellsItOnceUntilHalfIsFreeAgain)
{
    fill();
    EXPECT_EQ(warnings(), 0u);
    for (int i = 0; i < 5; ++i)
        EXPECT_NE(RawConnection(server.host(), server.port()).readAll(), "");
    EXPECT_EQ(warnings(), 1u);
    EXPECT_NE(server.logText().find("limit=limits.connections number=2 address=127.0.0.1\n"),
        std::string::npos);
    kept.clear();
    fill();
    EXPECT_NE(RawConnection(server.host(), server.port()).readAll(), "");
    EXPECT_GT(warnings(), 1u);
}

TEST_F(ServerHttpFull, RefusalsHoldFewSocketsHoweverManyCome)
{
    fill();
    const std::size_t before = openFilesOf(server.pid());
    std::vector<std::unique_ptr<RawConnection>> extra;
    for (int i = 0; i < 120; ++i)
        extra.push_back(std::make_unique<RawConnection>(server.host(), server.port()));
    std::size_t most = 0;
    for (const auto &connection : extra) {
        connection->readAll(); // the server has judged it
        most = std::max(most, openFilesOf(server.pid()));
    }
    EXPECT_LE(most, before + 32 + 8) << "the server has other files too";
    EXPECT_TRUE(waitFor([&] { return openFilesOf(server.pid()) <= before + 8; }))
        << "none waits for its client to go";
    EXPECT_NE(RawConnection(server.host(), server.port()).readAll(), "") << "the next one is told";
}

TEST(ServerHttpLimits, ConnectionsOfOneAddressAreCounted)
{
    ServerProcess::Options options;
    options.settings = { { "limits.perAddress", "3" } };
    ServerProcess server(options);
    std::vector<std::unique_ptr<RawConnection>> kept = served(server, 3);
    RawConnection extra(server.host(), server.port());
    const std::string reply = extra.readAll();
    EXPECT_NE(reply.find("HTTP/1.1 429"), std::string::npos) << reply;
    EXPECT_NE(reply.find("\"statuscode\":103"), std::string::npos);
    EXPECT_NE(
        server.logText().find(
            " warning connections refused limit=limits.perAddress number=3 address=127.0.0.1\n"),
        std::string::npos);
    kept.clear();
    HttpClient client(server.url());
    HttpReply later;
    for (int i = 0; i < 100 && later.status != 200; ++i)
        later = client.post(getRoles);
    EXPECT_EQ(later.status, 200) << "room again when the others have gone";
}

} // namespace
