#pragma once

#include "ServiceHarness.h"
#include "ocr/OcrEngine.h"
#include "store/OcrStore.h"
#include "support/DrawnPage.h"

#include <memory>
#include <string>
#include <vector>

namespace kvx::test {

/// The recognition services with the built worker program. Nothing is recognised before begin().
class OcrFixture : public testing::Test {
protected:
    explicit OcrFixture(const ServiceHarness::Adjust &adjust = {})
        : harness([&adjust](server::Config &config) {
            config.ocrProgram = KVX_OCR_PROGRAM;
            if (adjust)
                adjust(config);
        })
    {
    }
    ~OcrFixture() override { end(); }

    void begin()
    {
        engine = std::make_unique<server::OcrEngine>(harness.environment(), harness.pool(),
            [this](const std::string &key) { harness.dispatcher().wakeHeld(key); });
    }
    void end() { engine.reset(); }

    static Message submission(int exportType = 0, const std::string &languages = "[\"eng\"]",
        const std::string &pages = "[]", const std::string &name = "scan.pdf")
    {
        return Message("submit")
            .set("FileName", name)
            .raw("Languages", languages)
            .set("ExportType", exportType)
            .raw("PageIndexes", pages);
    }

    /// The job's number; the test fails when it is refused.
    static std::string submit(
        const Session &user, const std::string &document, const Message &request = submission())
    {
        const Answer answer = user.upload(request, document);
        EXPECT_EQ(answer.status(), 1) << answer.json();
        return answer.status() == 1 ? answer.text("JobID") : std::string();
    }

    static Message question(const std::string &job, int after = 0, int wait = 20)
    {
        return Message("state").set("JobID", job).set("After", after).set("Wait", wait);
    }

    struct Page {
        int index;
        bool ok;
        std::string text; ///< of a failed page its message
    };
    struct Story {
        std::string state; ///< at the end
        std::vector<Page> pages; ///< in order of completion
        std::string message; ///< of a failed job
    };
    /// Asks until the job is over.
    static Story follow(const Session &user, const std::string &job)
    {
        Story story;
        for (int question1 = 0; question1 < 200; ++question1) {
            const Answer answer = user.ask(question(job, static_cast<int>(story.pages.size()), 10));
            EXPECT_EQ(answer.status(), 1) << answer.json();
            if (answer.status() != 1)
                return story;
            for (const auto &result : answer["Results"].GetArray()) {
                const bool ok = result["Ok"].GetBool();
                story.pages.push_back({ result["PageIndex"].GetInt(), ok,
                    result[ok ? "Text" : "Message"].GetString() });
            }
            story.state = answer.text("State");
            if (story.state != "queued" && story.state != "running"
                && answer["Results"].Size() == 0) {
                story.message = answer.has("Message") ? answer.text("Message") : "";
                return story;
            }
        }
        ADD_FAILURE() << "the job does not end";
        return story;
    }

    ServiceHarness harness;
    Session anna = harness.join("anna@example.com");
    std::unique_ptr<server::OcrEngine> engine;
};

} // namespace kvx::test
