#include "NetworkTest.h"

#include <string>

namespace kvx::test {

namespace {

const char GoodReply[] = R"({"statuscode":1,"Roles":[{"Name":"Kalkulator","users":[]}]})";

std::string headed(const std::string &headers, const std::string &body)
{
    return "HTTP/1.1 200 OK\r\n" + headers + "\r\n" + body;
}

std::string chunked(const std::string &body)
{
    std::string bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (char c : body)
        bytes += std::string("1\r\n") + c + "\r\n";
    return bytes + "0\r\n\r\n";
}

} // namespace

class NetworkReplies : public NetworkTest {
protected:
    bool postAgainst(const std::string &bytes)
    {
        server.handle("/kvx/service", LoopbackServer::raw(bytes));
        reply = { { "old", 1 } };
        return post();
    }
    void expectRefusedBody(const std::string &body)
    {
        server.handle("/kvx/service", LoopbackServer::answer(body));
        reply = { { "old", 1 } };
        EXPECT_FALSE(post()) << body.substr(0, 40);
        EXPECT_TRUE(reply.isEmpty()) << body.substr(0, 40);
        EXPECT_FALSE(error().isEmpty()) << body.substr(0, 40);
    }
};

TEST_F(NetworkReplies, AReplyCutAtAnyByteFails)
{
    const std::string whole = LoopbackServer::response(GoodReply);
    EXPECT_TRUE(postAgainst(whole));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(postAgainst(whole.substr(0, size))) << size;
        EXPECT_TRUE(reply.isEmpty()) << size;
    }
}

// The library adds such a line to the last header of the exchange before on the same handle, whose
// memory is gone by then; an address sanitizer shows it.
TEST_F(NetworkReplies, AHeadThatBeginsWithAContinuedLineDoesNoHarm)
{
    for (const char *end : { "\r\n", "\n" }) {
        for (const char *status : { "HTTP/1.1 200 OK", "HTTP/1.1 200" }) {
            for (const char *continued : { " continued", "\tcontinued", " ", " a: b" }) {
                EXPECT_TRUE(postAgainst(LoopbackServer::response(GoodReply)));
                postAgainst(status + std::string(end) + continued + end + "Content-Length: 16" + end
                    + end + "{\"statuscode\":1}");
            }
        }
    }
    EXPECT_TRUE(postAgainst(LoopbackServer::response(GoodReply)));
}

TEST_F(NetworkReplies, AChunkedReplyCutAtAnyByteFails)
{
    const std::string whole = chunked(R"({"statuscode":1})");
    EXPECT_TRUE(postAgainst(whole));
    EXPECT_EQ(reply.value("statuscode").toInt(), 1);
    // The empty line after the last chunk tells nothing new, so its absence may pass.
    for (std::size_t size = 0; size + 4 < whole.size(); ++size) {
        EXPECT_FALSE(postAgainst(whole.substr(0, size))) << size;
        EXPECT_TRUE(reply.isEmpty()) << size;
    }
}

TEST_F(NetworkReplies, AConnectionResetInsideTheReplyFails)
{
    server.handle("/kvx/service", [](const Request &, Connection &connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 16\r\n\r\n{\"statuscode\":1");
        connection.reset();
    });
    EXPECT_FALSE(post());
    EXPECT_TRUE(reply.isEmpty());
}

TEST_F(NetworkReplies, AReplyThatDoesNotTellItsLengthFails)
{
    EXPECT_FALSE(postAgainst(headed("", GoodReply)));
    EXPECT_TRUE(reply.isEmpty());
    EXPECT_TRUE(error().contains("length")) << error().toStdString();
    EXPECT_FALSE(
        postAgainst("HTTP/1.0 200 OK\r\nConnection: close\r\n\r\n" + std::string(GoodReply)));
}

TEST_F(NetworkReplies, WhatIsNotOneJsonObjectFails)
{
    for (const char *body : { "", " ", "null", "true", "1", "\"text\"", "[]",
             "[{\"statuscode\":1}]", "{", "{\"statuscode\":1", "{\"statuscode\":1}}",
             "{\"statuscode\":1} x", "{\"statuscode\":1}{\"statuscode\":1}", "{\"statuscode\":NaN}",
             "{\"statuscode\":1e999}", "{statuscode:1}", "{'statuscode':1}", "{\"statuscode\":1,}",
             "<html>1</html>", "{\"a\":\"\xc3\"}", "{\"a\":\"\xff\xfe\"}", "{\"\xe4\":1}" })
        expectRefusedBody(body);
    expectRefusedBody(std::string("{\"statuscode\":1}\0", 17));
    expectRefusedBody(std::string(1100, '[') + std::string(1100, ']'));
    std::string deep;
    for (int i = 0; i < 1100; ++i)
        deep += "{\"a\":";
    expectRefusedBody(deep + "1" + std::string(1100, '}'));
}

TEST_F(NetworkReplies, OddButCompleteObjectsPass)
{
    for (const char *body :
        { "{}", " {\"statuscode\":1}\r\n", "{\"a\":1,\"a\":2}", "{\"\":\"\"}" }) {
        server.handle("/kvx/service", LoopbackServer::answer(body));
        EXPECT_TRUE(post()) << body;
    }
}

TEST_F(NetworkReplies, GarbageInsteadOfHttpFails)
{
    for (const char *bytes : { "", "\r\n\r\n", "{\"statuscode\":1}", "SSH-2.0-x\r\n",
             "HTTP/9.9 200 OK\r\n\r\n", "HTTP/1.1\r\n\r\n", "HTTP/1.1 abc OK\r\n\r\n{}",
             "HTTP/1.1 100 Continue\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n{}",
             "HTTP/1.1 200 OK\r\nContent-Length: abc\r\n\r\n{}",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n{}\r\n0\r\n\r\n",
             "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999\r\n\r\n{}",
             "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\n{} " }) {
        EXPECT_FALSE(postAgainst(bytes)) << bytes;
        EXPECT_TRUE(reply.isEmpty()) << bytes;
    }
}

TEST_F(NetworkReplies, AnInterimResponseIsPassedOver)
{
    EXPECT_TRUE(postAgainst("HTTP/1.1 103 Early Hints\r\nContent-Length: 7\r\n\r\n"
        + LoopbackServer::response(GoodReply)));
}

TEST_F(NetworkReplies, EndlessHeadersAreCutOff)
{
    std::size_t sent = 0;
    server.handle("/kvx/service", [&sent](const Request &, Connection &connection) {
        connection.send("HTTP/1.1 200 OK\r\n");
        const std::string line = "X-Filler: " + std::string(1000, 'x') + "\r\n";
        while (sent < 64u * 1024 * 1024 && connection.send(line))
            sent += line.size();
        connection.close();
    });
    EXPECT_FALSE(post());
    EXPECT_TRUE(error().contains("too large")) << error().toStdString();
    EXPECT_FALSE(
        postAgainst("HTTP/1.1 200 OK\r\nX: " + std::string(1024 * 1024, 'y') + "\r\n\r\n{}"));
}

TEST_F(NetworkReplies, AnAnnouncedBodyAboveTheLimitIsNotRead)
{
    server.handle("/kvx/service", [](const Request &, Connection &connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 134217729\r\n\r\n{");
        connection.wait(20'000);
    });
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(post());
    EXPECT_LT(timer.elapsed(), 10'000);
    EXPECT_TRUE(error().contains("too large")) << error().toStdString();
}

TEST_F(NetworkReplies, AnEndlessChunkedBodyIsCutOffAtTheLimit)
{
    std::atomic<qint64> sent { 0 };
    server.handle("/kvx/service", [&sent](const Request &, Connection &connection) {
        connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        const std::string chunk = "100000\r\n" + std::string(1024 * 1024, ' ') + "\r\n";
        while (sent < 400 && connection.send(chunk))
            ++sent;
        connection.close();
    });
    EXPECT_FALSE(post());
    EXPECT_TRUE(error().contains("too large")) << error().toStdString();
    EXPECT_GE(sent, 127);
    EXPECT_LT(sent, 200);
}

TEST_F(NetworkReplies, AReplyOfTinyElementsIsNotBlownUpInMemory)
{
    std::string body = "{\"a\":[";
    for (int i = 0; i < 16'000'001; ++i)
        body += "0,";
    expectRefusedBody(body + "0]}");
}

TEST_F(NetworkReplies, ALargeHonestReplyPasses)
{
    std::string body = "{\"statuscode\":1,\"projects\":[";
    for (int i = 0; i < 20'000; ++i)
        body
            += (i ? ",{\"Description\":\"" : "{\"Description\":\"") + std::string(300, 'd') + "\"}";
    server.handle("/kvx/service", LoopbackServer::answer(body + "]}"));
    EXPECT_TRUE(post());
    EXPECT_EQ(reply.value("projects").toArray().size(), 20'000);
}

} // namespace kvx::test
