#include "Replay.h"

#include "base/JsonText.h"
#include "services/StatusCode.h"
#include "support/Watchdog.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <rapidjson/pointer.h>
#include <set>

// Every text of every recorded request, in turn replaced by what would break out of a statement, a
// path, a header or a log line: it is taken as the ordinary text that it is, or refused as such.
// And every value replaced by one of each other type.

using namespace kvx::test;
using namespace std::string_literals;

namespace {

constexpr char harmless[] = "Nordring";

/// `secret` is a file beside the server's folder, which none of them may reach.
std::vector<std::string> payloads(const std::string &secret)
{
    return {
        // statements
        "' OR '1'='1",
        "'; DROP TABLE users; --",
        "\" OR \"\"=\"",
        "') OR 1=1 --",
        "1; ATTACH DATABASE '" + secret + "' AS stolen",
        "'||(SELECT password FROM users LIMIT 1)||'",
        "x' UNION SELECT token, 1, 1 FROM session --",
        "\\' OR 1=1 --",
        "' AND randomblob(1e9) --",
        "');DELETE FROM project;--",
        "%",
        "_______%",
        "*",
        ":guid",
        "?1",
        "$1",
        "@name",
        "/* */ --",
        "NULL",
        "0x27204f52",
        "\xEF\xBC\x87 OR 1=1",
        "'\0' OR 1=1"s,
        // paths
        "../../../../../../etc/passwd",
        "..\\..\\..\\windows\\win.ini",
        secret,
        "/etc/passwd",
        "C:\\Windows\\win.ini",
        "\\\\server\\share\\x",
        "%2e%2e%2f%2e%2e%2fpasswd",
        "..%c0%af..%c0%afpasswd",
        "....//....//passwd",
        "file://" + secret,
        "~/.ssh/id_rsa",
        "CON",
        "aux.txt",
        "{00000001-AbCd-4abc-8def-0123456789ab}_log0/../../../etc/passwd",
        "mine.txt\0.KVX"s,
        // whatever is printed, run or parsed
        "%s%n%x",
        "$(touch " + secret + ")",
        "x\r\nSet-Cookie: kvxsid=chosen\r\n\r\n",
        "\xE2\x80\xAE"
        "gpj.exe",
        std::string(4000, 'x'),
    };
}

bool isOrdinaryFile(const std::string &name)
{
    const auto isUnder = [&name](const std::string &folder, const char *characters) {
        return name.compare(0, folder.size(), folder) == 0
            && name.find_first_not_of(characters, folder.size()) == std::string::npos;
    };
    return (isUnder("blobs/", "0123456789abcdef/") && name.size() > 6)
        || isUnder("tmp/", "0123456789abcdef-") || name.compare(0, 4, "log/") == 0;
}

/// What one text in a request has done.
struct Effect {
    int status = 0;
    std::map<std::string, std::int64_t> rows;
    std::set<std::string> tables; ///< whose rows differ now
};

class Payloads : public testing::Test {
public:
    Payloads() { std::ofstream(secret) << "outside of the server"; }

    Effect send(Replay &replay, const std::string &place, const std::string &text)
    {
        return send(replay, place,
            rapidjson::Value(text.data(), static_cast<rapidjson::SizeType>(text.size())));
    }

    Effect send(Replay &replay, const std::string &place, const rapidjson::Value &value)
    {
        rapidjson::Document request = replay.request();
        rapidjson::Pointer(place.c_str(), place.size())
            .Set(request, rapidjson::Value(value, request.GetAllocator()));
        return ask(replay, request);
    }

    Effect ask(Replay &replay, const rapidjson::Document &request)
    {
        const Answer answer = replay.ask(request);
        Effect effect;
        effect.status = answer.status();
        EXPECT_NE(effect.status, 0) << answer.json();
        EXPECT_NE(answer.httpStatus, 500) << answer.json();
        EXPECT_NE(kvx::server::statusWord(kvx::server::StatusCode(effect.status)), "");
        EXPECT_EQ(answer.json().find("outside of the server"), std::string::npos);
        EXPECT_FALSE(answer.isFile() && answer.fileBytes() == "outside of the server");
        const auto after = replay.store().contents();
        for (const auto &[table, rows] : after) {
            if (rows != m_before.at(table))
                effect.tables.insert(table);
        }
        effect.rows = replay.store().rowCounts();
        if (!effect.tables.empty())
            replay.putBack();
        return effect;
    }

    void replayWith(Replay &replay, const std::string &place)
    {
        m_before = replay.store().contents();
        const Effect ordinary = send(replay, place, harmless);
        for (const std::string &payload : payloads(secret)) {
            SCOPED_TRACE(place + " = " + payload.substr(0, 80));
            const Effect effect = send(replay, place, payload);
            ++m_cases;
            if (effect.status == 1) {
                ++m_taken;
                EXPECT_EQ(ordinary.status, 1) << "an ordinary text is refused here";
                EXPECT_EQ(effect.rows, ordinary.rows);
                EXPECT_EQ(effect.tables, ordinary.tables);
            } else {
                EXPECT_EQ(effect.tables, std::set<std::string> {}) << "refused, and yet changed";
            }
        }
    }

    /// Each value; by default each third, another third with each key.
    void replayWithEachType(Replay &replay, const std::string &place)
    {
        m_before = replay.store().contents();
        const Effect ordinary = ask(replay, replay.request());
        std::size_t turn = ++m_keys;
        for (const char *value : valuesOfEachType()) {
            if (turn++ % 3 != 0 && !std::getenv("KVX_TEST_LONG"))
                continue;
            SCOPED_TRACE(place + " = " + value);
            const Effect effect = send(replay, place, parsedJson(value));
            ++m_cases;
            if (effect.status != 1) {
                EXPECT_EQ(effect.tables, std::set<std::string> {}) << "refused, and yet changed";
                continue;
            }
            ++m_taken;
            // What the request as recorded leaves alone stays alone. Another text may be the name
            // of something else.
            if (ordinary.status == 1 && *value != '"') {
                for (const std::string &table : effect.tables)
                    EXPECT_EQ(ordinary.tables.count(table), 1u) << table;
            }
        }
    }

    /// `replay` at each of the places of every recorded request; a key of a service once.
    void inEveryRequest(std::vector<std::string> (*places)(const rapidjson::Value &),
        void (Payloads::*replayAt)(Replay &, const std::string &))
    {
        for (const Exchange &exchange : exchangesForReplay()) {
            SCOPED_TRACE(exchange.service + ": " + exchange.title);
            Replay replay(exchange);
            const std::string schema = replay.store().schema();
            m_services.insert(exchange.service);
            for (const std::string &place : places(replay.request())) {
                if (m_done.insert(exchange.service + anyElement(place)).second)
                    (this->*replayAt)(replay, place);
            }
            EXPECT_EQ(replay.store().schema(), schema);
            for (const std::string &file : replay.files())
                EXPECT_TRUE(isOrdinaryFile(file)) << file;
        }
    }

    TemporaryFolder beside;
    const std::string secret = beside.path + "/secret";
    std::map<std::string, std::string> m_before;
    std::set<std::string> m_done; ///< service and key
    std::set<std::string> m_services;
    std::size_t m_keys = 0;
    int m_cases = 0;
    int m_taken = 0;
};

} // namespace

TEST_F(Payloads, InAnyTextAreTakenAsTextOrRefused)
{
    Watchdog::allow(400);
    inEveryRequest(textsIn, &Payloads::replayWith);
    std::ifstream file(secret);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "outside of the server");
    std::printf("%d cases in %zu keys of %zu services, %d of them taken as text\n", m_cases,
        m_done.size(), m_services.size(), m_taken);
    EXPECT_GT(m_cases, 5000);
    EXPECT_GT(m_taken, 500);
}

TEST_F(Payloads, OfAnyTypeInAnyKeyAreRefusedOrTaken)
{
    Watchdog::allow(400);
    inEveryRequest(placesIn, &Payloads::replayWithEachType);
    std::printf("%d cases in %zu keys of %zu services, %d of them taken\n", m_cases, m_done.size(),
        m_services.size(), m_taken);
    EXPECT_GT(m_done.size(), 100u);
    EXPECT_GE(m_cases, int(m_done.size()) * 3);
}
