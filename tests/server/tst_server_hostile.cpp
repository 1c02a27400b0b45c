#include "ServiceHarness.h"

#include "base/JsonText.h"
#include "services/FileNames.h"
#include "services/StatusCode.h"

#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <set>
#include <sys/resource.h>

// Names and texts that want to be somewhere else or cost more than they are worth.

using namespace kvx::test;
using namespace kvx::server;
using testing::AnyOf;

namespace {

class HostileTexts : public testing::Test {
protected:
    HostileTexts()
    {
        EXPECT_EQ(anna.ask(newProject(anna, guid, "School")).status(), 1);
        EXPECT_EQ(anna.upload(guid + ".KVX", "base").status(), 1);
    }

    /// Every path below the server's folder that is not named by a digest or by the server itself.
    std::set<std::string> foreignPaths() const
    {
        std::set<std::string> paths;
        const std::filesystem::path folder = harness.folder();
        for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
            const std::string path = entry.path().lexically_relative(folder).string();
            const std::string name = entry.path().filename().string();
            const bool digest = name.find_first_not_of("0123456789abcdef-") == std::string::npos;
            if (!digest && path.rfind("db", 0) != 0 && path != "blobs" && path != "tmp")
                paths.insert(path);
        }
        return paths;
    }

    /// A JSON text as a request, without the session's key.
    Answer post(const std::string &text)
    {
        const auto exchange = std::make_shared<Exchange>();
        exchange->endpoint = &allEndpoints().front();
        exchange->body = text;
        exchange->token = anna.token;
        exchange->address = "127.0.0.1";
        exchange->connectionId = anna.connection;
        std::promise<Reply> promise;
        harness.dispatcher().dispatch(
            exchange, [&promise](Reply reply) { promise.set_value(std::move(reply)); });
        return Answer(promise.get_future().get());
    }

    ServiceHarness harness;
    const Session anna = harness.join("anna@example.com", "Everything");
    const std::string guid = guidOf(1);
};

/// Two hundred names that no file should have, and some that only look so.
std::vector<std::string> twoHundredNames()
{
    std::vector<std::string> names;
    const std::vector<std::string> parts { "..", "../x", "../../etc/passwd", "a/../../b",
        "/etc/passwd", "//srv/share", "\\\\srv\\share", "..\\x", "C:\\x", "C:x", "\\\\.\\NUL",
        "\\\\?\\C:\\x", "%2e%2e%2f", "%2e%2e", "..%2f", "%00", "a%00b", "file:///etc/passwd", "~/x",
        "~root", "$HOME", "`id`", "$(id)", ";id", "|id", "a&&b", "a\nb", "a\rb", "a\tb", "a\x1b[2J",
        "*", "?", "[a]", "\"", "'", "' OR 1=1 --", "'; DROP TABLE blob; --", "<script>", "&amp;",
        "a:b", "a::$DATA", ".", "...", ". .", " ", "  ", ".htaccess", "a.", "a ", " a", "con",
        "CON", "nul", "prn.txt", "aux.tar.gz", "com1", "COM9.log", "lpt1", "lpt9.x", "conin$",
        "CONOUT$", "clock$", "con .txt", "nul  .a", "com1 .b",
        "\xe2\x80\xae"
        "gnp.exe",
        "\xe2\x81\x84"
        "etc",
        "\xef\xbc\x8f"
        "etc",
        "\xe2\x88\x95"
        "etc",
        "\xef\xbc\x8e\xef\xbc\x8e", "\xe2\x80\xa4\xe2\x80\xa4",
        "a\xe2\x80\x8b"
        "b",
        "\xef\xbb\xbf"
        "a",
        "\xc0\xae\xc0\xae", "\xed\xa0\x80", "\xff", "\xf4\x90\x80\x80", "\xf0\x9f\x98\x80",
        "a\xcc\x88", "\xe6\xbc\xa2\xe5\xad\x97", "kvx.sqlite", "blobs", "tmp", "db", "a..b" };
    for (const std::string &part : parts) {
        names.push_back(part);
        names.push_back(guidOf(1) + "_" + part);
    }
    names.push_back(std::string("a\0b", 3));
    names.push_back(std::string("a.txt\0.exe", 10));
    for (const std::size_t size : { 121u, 255u, 256u, 1000u, 1001u, 4096u, 100'000u })
        names.push_back(std::string(size, 'n'));
    for (const char *rest : { "_log01", "_log-1", "_log1.5", "_log1e3", "_log", "_log 1",
             "_log1/../2", "_log1\n", "_log99999999999999999999", ".KVX/../x", ".KVX.", ".KVX ",
             ".kvx", "..KVX", "", "_", "/", "_log\xd9\xa1" })
        names.push_back(guidOf(1) + rest);
    for (const char *other : { "{}", "{../..}", "{00000000-0000-0000-0000-00000000000g}_log1",
             "00000000-0000-0000-0000-000000000001_log1",
             "{{00000000-0000-0000-0000-000000000001}}" })
        names.push_back(other);
    return names;
}

std::int64_t peakMemory()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return std::int64_t { usage.ru_maxrss } * 1024;
}

} // namespace

TEST_F(HostileTexts, TwoHundredFileNamesStayInTheirPlace)
{
    const std::vector<std::string> names = twoHundredNames();
    EXPECT_GE(names.size(), 200u);
    int taken = 0;
    for (const std::string &name : names) {
        SCOPED_TRACE(jsonText(name.substr(0, 200)));
        const Answer up = anna.upload(name, "content of " + name.substr(0, 10));
        if (up.status() == 1) {
            ++taken;
            EXPECT_TRUE(parseFileName(name).has_value());
            EXPECT_EQ(anna.ask(Message("hasupload").set("FileName", name)).status(), 1);
            const Answer down = anna.ask(Message("download").set("FileName", name));
            EXPECT_EQ(down.fileBytes(), "content of " + name.substr(0, 10));
            continue;
        }
        // Not a name, or one that needs a lock.
        EXPECT_THAT(up.status(), AnyOf(100, 300, 310, 600, 604)) << up.json();
        EXPECT_THAT(anna.ask(Message("download").set("FileName", name)).status(), AnyOf(100, 606));
        EXPECT_THAT(anna.ask(Message("hasupload").set("FileName", name)).status(), AnyOf(100, 606));
    }
    EXPECT_GT(taken, 5) << "the harmless ones";
    EXPECT_LT(taken, 40);
    EXPECT_THAT(foreignPaths(), testing::IsEmpty());
}

TEST_F(HostileTexts, TwoHundredTemplateNamesAreTextAndNothingElse)
{
    int taken = 0;
    for (const std::string &name : twoHundredNames()) {
        SCOPED_TRACE(jsonText(name.substr(0, 200)));
        const Answer up = anna.ask(Message("reportTemplateUpload")
                                       .set("name", name)
                                       .set("type", 1)
                                       .set("projectVersion", "1")
                                       .set("author", "Anna")
                                       .set("authorEmail", "anna@example.com")
                                       .set("template", "e30="));
        if (up.status() != 1) {
            EXPECT_EQ(up.status(), 100) << up.json();
            continue;
        }
        ++taken;
        const Answer found = anna.ask(Message("reportTemplateExist").set("name", name));
        EXPECT_EQ(found.status(), 1);
        const std::string id = up.text("templateID");
        EXPECT_EQ(id.find_first_of("/\\."), std::string::npos);
        EXPECT_EQ(anna.ask(Message("reportTemplateDownload").set("templateID", name)).status(), 640)
            << "a name is no identifier";
        EXPECT_EQ(anna.ask(Message("reportTemplateDelete")
                               .raw("templateIDArray", '[' + jsonText(id) + ']'))
                      .status(),
            1);
    }
    EXPECT_GT(taken, 50) << "a name is shown, so most are none of the server's business";
    EXPECT_THAT(foreignPaths(), testing::IsEmpty());
}

TEST_F(HostileTexts, FifteenMegabytesOfEmptyArraysAreRefusedBeforeTheyAreParsed)
{
    std::string arrays;
    arrays.reserve(15'000'100);
    while (arrays.size() < 15'000'000)
        arrays += "[],";
    const std::vector<std::string> requests {
        R"({"service":"getroles","a":[)" + arrays + "[]]}",
        R"({"a":[)" + arrays + R"([]],"service":"getroles"})",
        R"({"a":[)" + arrays + "[]]}",
        '[' + arrays + "[]]",
        R"({"service":"updateroles","Roles":[)" + arrays + "[]]}",
        R"({"service":"nothing","a":[)" + arrays,
    };
    for (std::string request : requests) {
        const std::int64_t before = peakMemory();
        const Answer answer = post(request);
        EXPECT_EQ(answer.status(), static_cast<int>(StatusCode::TooLarge)) << answer.json();
        EXPECT_EQ(answer.httpStatus, 413);
        // The texts themselves, and next to nothing.
        EXPECT_LT(peakMemory() - before, 40 << 20);
    }
    EXPECT_EQ(anna.ask(Message("getroles")).status(), 1) << "the server goes on";
}

TEST_F(HostileTexts, NestingWithoutEndIsRefused)
{
    const std::string deep(400'000, '[');
    for (const std::string &text : { deep, deep + std::string(400'000, ']'),
             R"({"service":"getroles","a":)" + deep + std::string(400'000, ']') + '}',
             R"({"service":)" + deep }) {
        const Answer answer = post(text);
        EXPECT_EQ(answer.status(), 100) << answer.json();
        EXPECT_EQ(answer.httpStatus, 400);
    }
    std::string objects;
    for (int i = 0; i < 100'000; ++i)
        objects += R"({"a":)";
    EXPECT_EQ(post(objects).status(), 100);
    EXPECT_EQ(
        post(R"({"service":"getroles","a":)" + objects + "1" + std::string(100'001, '}')).status(),
        100);
}

TEST_F(HostileTexts, ALargeRequestIsReadWhereItsServiceStands)
{
    const std::string padding(1'200'000, 'x');
    EXPECT_EQ(post(R"({"a":")" + padding + R"(","service":"getroles"})").status(), 102);
    // Behind another key, under an escaped name, but never further inside.
    const std::string ids
        = R"("ModuleType":1,"NotifyOther":false,"IDs":"1;","Email":"anna@example.com",)"
          R"("ProjectGUID":)"
        + jsonText(guid);
    EXPECT_EQ(
        post(R"({"a":")" + padding + R"(",)" + ids + R"(,"service":"checkout"})").status(), 1);
    EXPECT_EQ(
        post(R"({"a":")" + padding + R"(",)" + ids + R"(,"s\u0065rvice":"checkout"})").status(), 1);
    EXPECT_EQ(post(R"({"b":{"service":"checkout"},"a":")" + padding + R"(","service":"getroles"})")
                  .status(),
        102);
    EXPECT_EQ(post(R"({"service":5,"a":")" + padding + "\"}").status(), 102);
}
