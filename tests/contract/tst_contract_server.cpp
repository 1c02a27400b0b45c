#include "ContractFile.h"
#include "ServerState.h"

#include <gmock/gmock.h>

// Every recorded exchange against the server's services over a real database: the state is brought
// about, the request is posted letter by letter, and the reply must be the recorded one.

using namespace kvx::test;
using testing::ElementsAreArray;

namespace {

class ServerContract : public testing::TestWithParam<kvx::test::Exchange> {
protected:
    std::string caller() const
    {
        return GetParam().has("caller") ? textOf(GetParam()["caller"]) : "anna";
    }

    /// What reaches the server of the file that the client sends; null without one.
    const std::string *sentFile()
    {
        const bool upload = GetParam().service == "upload" || GetParam().service == "submit";
        const char *key = GetParam().has("arrived") ? "arrived" : "file";
        if (!upload || !GetParam().has(key))
            return nullptr;
        m_file = bytesOf(GetParam()[key]);
        return &m_file;
    }

    kvx::server::Reply post(const std::string &request)
    {
        return m_state.post(caller(), GetParam().path(), request, sentFile());
    }

    void expectReply(const rapidjson::Value &expected, const kvx::server::Reply &reply)
    {
        const Answer answer(reply);
        for (const std::string &line : differences(expected, parsedJson(answer.json())))
            ADD_FAILURE() << line;
        EXPECT_EQ(reply.httpStatus(), GetParam().httpStatus());
        const bool download = GetParam().service == "download"
            || GetParam().service == "comresource/download" || GetParam().service == "result";
        EXPECT_EQ(answer.isFile(), download && answer.status() == 1);
        if (answer.isFile()) {
            EXPECT_EQ(answer.fileBytes(), bytesOf(GetParam()["file"]));
        }
    }

    void expectAnnouncements()
    {
        std::vector<std::string> expected;
        if (GetParam().has("announces")) {
            for (const auto &announcement : GetParam()["announces"].GetArray())
                expected.push_back(textOf(announcement));
        }
        std::vector<std::string> sent;
        for (const auto &announcement : m_state.harness().takeSent()) {
            sent.push_back(announcement.type + ' ' + announcement.command);
            EXPECT_NE(announcement.content, "");
        }
        EXPECT_THAT(sent, ElementsAreArray(expected));
    }

    ServerState m_state;

private:
    std::string m_file;
};

TEST_P(ServerContract, Answers)
{
    if (GetParam().has("state")) {
        for (const auto &step : GetParam()["state"].GetArray())
            m_state.bring(step);
    }
    m_state.tokenOf(caller());
    m_state.harness().takeSent();

    const std::string request = filledJson(GetParam()["request"]);
    expectReply(GetParam()["reply"], post(request));
    expectAnnouncements();
    if (GetParam().has("repeated"))
        expectReply(GetParam()["repeated"], post(request));
}

INSTANTIATE_TEST_SUITE_P(Exchanges, ServerContract, testing::ValuesIn(allExchanges()),
    [](const auto &info) { return info.param.fullTestName(); });

} // namespace
