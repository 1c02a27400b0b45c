#include "OcrFixture.h"

#include "services/ServiceMemory.h"

#include <chrono>
#include <cmath>
#include <gmock/gmock.h>

// Whose page comes next, who may wait how long, and what an end of the server does.

using namespace kvx::test;
using namespace kvx::server;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class OneWorker : public OcrFixture {
protected:
    OneWorker()
        : OcrFixture([](Config &config) { config.ocrWorkers = 1; })
    {
    }

    static std::string small(int pages = 1)
    {
        std::vector<DrawnPage> drawn;
        for (int i = 0; i < pages; ++i)
            drawn.push_back(smallPage("Page " + std::to_string(i + 1)));
        return pdfOf(drawn);
    }

    template <class Act> void change(Act act)
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        act(harness.db());
        transaction.commit();
    }

    Session ben = harness.join("ben@example.com");
};

class ShortQueue : public OcrFixture {
protected:
    ShortQueue()
        : OcrFixture([](Config &config) { config.ocrQueue = 3; })
    {
    }
};

class SwitchedOff : public OcrFixture {
protected:
    SwitchedOff()
        : OcrFixture([](Config &config) { config.ocrWorkers = 0; })
    {
    }
};

class OneLanguage : public OcrFixture {
protected:
    OneLanguage()
        : OcrFixture([](Config &config) { config.ocrLanguages = { "deu" }; })
    {
    }
};

} // namespace

TEST_F(OneWorker, UsersTakeTurnsPageByPage)
{
    const std::string first = submit(anna, small(4));
    const std::string second = submit(ben, small(1));
    begin();
    EXPECT_EQ(follow(ben, second).state, "finished");
    const Answer meanwhile = anna.ask(question(first, 0, 0));
    EXPECT_LE(meanwhile["Results"].Size(), 3u) << "the first user's pages all came before";
    EXPECT_EQ(follow(anna, first).pages.size(), 4u);
}

TEST_F(OneWorker, PagesOfAJobComeInTheirOrder)
{
    const std::string job = submit(anna, small(3));
    begin();
    std::vector<int> order;
    for (const Page &page : follow(anna, job).pages)
        order.push_back(page.index);
    EXPECT_THAT(order, ElementsAre(0, 1, 2));
}

TEST_F(OneWorker, TheWaitingTimeFollowsFromThePagesBefore)
{
    const Answer first = anna.upload(submission(), small(3));
    EXPECT_EQ(first.integer("Pages"), 3);
    EXPECT_EQ(first.integer("WaitingTime"), 0);
    const Answer second = ben.upload(submission(), small(1));
    const double assumed = harness.environment().memory->ocr.secondsAPage();
    EXPECT_EQ(second.integer("WaitingTime"), static_cast<std::int64_t>(std::ceil(3 * assumed)));

    harness.environment().memory->ocr.noteDuration(std::chrono::milliseconds(500));
    harness.environment().memory->ocr.noteDuration(std::chrono::milliseconds(1500));
    EXPECT_EQ(ben.ask(question(second.text("JobID"), 0, 0)).integer("WaitingTime"), 3);
    EXPECT_EQ(ben.ask(question(second.text("JobID"), 0, 0)).text("State"), "queued");
}

TEST_F(OneWorker, AQuestionIsHeldBackUntilThereIsNews)
{
    const std::string job = submit(anna, small(1));
    auto held = anna.askLater(question(job).set("Email", anna.email));
    EXPECT_EQ(held.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    const auto start = std::chrono::steady_clock::now();
    begin();
    const Answer answer = held.get();
    EXPECT_EQ(answer["Results"].Size(), 1u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST_F(OneWorker, AQuestionWithoutNewsIsAnsweredWhenItsTimeIsOver)
{
    const std::string job = submit(anna, small(1));
    const Answer answer = anna.ask(question(job, 0, 1));
    EXPECT_EQ(answer.status(), 1);
    EXPECT_EQ(answer.text("State"), "queued");
    EXPECT_EQ(answer["Results"].Size(), 0u);
}

TEST_F(OneWorker, AUserHasTwoJobsAtATime)
{
    submit(anna, small());
    const std::string second = submit(anna, small());
    const Answer third = anna.upload(submission(), small());
    EXPECT_EQ(third.status(), 106);
    EXPECT_THAT(third.text("message"), HasSubstr("2 recognition jobs at a time"));
    EXPECT_EQ(ben.upload(submission(), small()).status(), 1);
    EXPECT_EQ(anna.ask(Message("cancel").set("JobID", second)).status(), 1);
    EXPECT_EQ(anna.upload(submission(), small()).status(), 1);
}

TEST_F(ShortQueue, AFullQueueSaysSo)
{
    const std::string picture = pictureOf(smallPage(), "png");
    submit(anna, picture);
    submit(anna, picture);
    submit(harness.join("ben@example.com"), picture);
    EXPECT_EQ(harness.join("carl@example.com").upload(submission(), picture).status(), 103);
}

TEST_F(OneWorker, AJobThatWaitsCanBeCancelled)
{
    const std::string job = submit(anna, small(2));
    auto held = anna.askLater(question(job).set("Email", anna.email));
    EXPECT_EQ(anna.ask(Message("cancel").set("JobID", job)).status(), 1);
    EXPECT_EQ(held.get().text("State"), "cancelled");
    EXPECT_EQ(anna.ask(Message("cancel").set("JobID", job)).status(), 1);
    begin();
    const std::string other = submit(ben, small());
    EXPECT_EQ(follow(ben, other).state, "finished");
    EXPECT_EQ(anna.ask(question(job, 0, 0))["Results"].Size(), 0u);
    EXPECT_EQ(anna.ask(Message("result").set("JobID", job).set("PageIndex", 0)).status(), 682);
}

TEST_F(OneWorker, CancellingEndsThePageInWork)
{
    const std::string job = submit(anna, noisePdf());
    begin();
    while (anna.ask(question(job, 0, 1)).text("State") == "queued") { }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(anna.ask(Message("cancel").set("JobID", job)).status(), 1);
    const std::string other = submit(ben, small());
    EXPECT_EQ(follow(ben, other).state, "finished");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST_F(OneWorker, AnotherUsersJobIsNotThere)
{
    const std::string job = submit(anna, small());
    begin();
    EXPECT_EQ(follow(anna, job).state, "finished");
    for (const Message &message : { question(job, 0, 0), Message("cancel").set("JobID", job),
             Message("result").set("JobID", job).set("PageIndex", 0) }) {
        const Answer answer = ben.ask(message);
        EXPECT_EQ(answer.status(), 682);
        EXPECT_EQ(answer.text("message"), "There is no such recognition job.");
    }
    EXPECT_EQ(ben.ask(question("no-such-job", 0, 0)).status(), 682);
}

TEST_F(OneWorker, AnOrderlyStopPutsThePageInWorkBack)
{
    const std::string job = submit(anna, small(3));
    for (int i = 0; i < 3; ++i) { // more often than a crash is forgiven
        begin();
        while (anna.ask(question(job, 0, 1)).text("State") == "queued") { }
        end();
    }
    begin();
    const Story story = follow(anna, job);
    EXPECT_EQ(story.state, "finished");
    for (const Page &page : story.pages)
        EXPECT_TRUE(page.ok) << page.text;
}

TEST_F(OneWorker, ACrashPutsThePageInWorkBackOnce)
{
    const std::string job = submit(anna, small(1));
    change([&job](Db &db) { OcrStore(db).start(job, 0); });
    begin();
    const Story story = follow(anna, job);
    EXPECT_EQ(story.state, "finished");
    EXPECT_EQ(story.pages.size(), 1u);
}

TEST_F(OneWorker, ASecondCrashFailsThePageAndTheRestGoesOn)
{
    const std::string job = submit(anna, small(2));
    change([&job](Db &db) { OcrStore(db).start(job, 0); });
    harness.config().ocrWorkers = 0; // a start that gets no further
    begin();
    end();
    change([&job](Db &db) { OcrStore(db).start(job, 0); });
    harness.config().ocrWorkers = 1;
    begin();
    const Story story = follow(anna, job);
    EXPECT_EQ(story.state, "finished");
    ASSERT_EQ(story.pages.size(), 2u);
    EXPECT_FALSE(story.pages[0].ok);
    EXPECT_THAT(story.pages[0].text, HasSubstr("Page 1 could not be recognised"));
    EXPECT_TRUE(story.pages[1].ok);
}

TEST_F(OneWorker, JobsAreForgottenAnHourAfterTheirEnd)
{
    const std::string job = submit(anna, small());
    begin();
    follow(anna, job);
    const std::string waiting = submit(ben, small());
    end();
    const auto tidy
        = [this] { change([this](Db &db) { dropOldOcrJobs(harness.environment(), db); }); };
    const auto ask = [this, &job] {
        return harness.login("anna@example.com").ask(question(job, 0, 0)).status();
    };
    harness.pass(59 * 60'000);
    tidy();
    EXPECT_EQ(ask(), 1);
    harness.pass(2 * 60'000);
    tidy();
    EXPECT_EQ(ask(), 682);
    EXPECT_EQ(harness.login("ben@example.com").ask(question(waiting, 0, 0)).status(), 1);
}

TEST_F(SwitchedOff, NoLanguageIsOffered)
{
    const Answer languages = anna.ask(Message("languages"));
    EXPECT_EQ(languages["Languages"].Size(), 0u);
    EXPECT_EQ(anna.upload(submission(), pictureOf(smallPage(), "png")).status(), 681);
}

TEST_F(OneLanguage, OthersAreNotInstalled)
{
    const Answer languages = anna.ask(Message("languages"));
    ASSERT_EQ(languages["Languages"].Size(), 1u);
    EXPECT_STREQ(languages["Languages"][0].GetString(), "deu");
    const Answer refused = anna.upload(submission(), pictureOf(smallPage(), "png"));
    EXPECT_EQ(refused.status(), 681);
    EXPECT_EQ(refused.text("message"), "Recognition of \"eng\" is not installed.");
}
