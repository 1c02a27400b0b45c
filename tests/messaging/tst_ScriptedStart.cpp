#include "ScriptedFixture.h"

#include <stdexcept>

namespace kvx::test {

class ScriptedStart : public ScriptedFixture { };

TEST_F(ScriptedStart, theStepsComeInOrder)
{
    messager->setCredentials(QStringLiteral("u"), QStringLiteral("p"));
    EXPECT_TRUE(messager->start());
    EXPECT_EQ(library.steps(),
        (Steps { "initialize", "factory tcp://h:1", "connect u p", "clientId anna@example.com",
            "exceptionListener", "session 0", "topic t", "producer", "consumer", "messageListener",
            "start", "delete factory" }));
}

TEST_F(ScriptedStart, withoutCredentialsTheyAreEmpty)
{
    EXPECT_TRUE(messager->start());
    EXPECT_EQ(library.count("connect  "), 1);
}

TEST_F(ScriptedStart, aSecondStartReleasesTheEarlierObjectsOnceItIsConnected)
{
    ASSERT_TRUE(messager->start());
    library.takeSteps();
    ASSERT_TRUE(messager->start());
    const Steps steps = library.takeSteps();
    EXPECT_EQ(Steps(steps.begin(), steps.begin() + 9),
        (Steps { "factory tcp://h:1", "connect  ", "close", "delete topic", "delete producer",
            "delete consumer", "delete session", "delete connection",
            "clientId anna@example.com" }));
}

TEST_F(ScriptedStart, theEarlierObjectsStayWhenTheConnectionCannotBeMade)
{
    ASSERT_TRUE(messager->start());
    library.takeSteps();
    library.onStep("connect", throwBrokerError);
    EXPECT_FALSE(messager->start());
    EXPECT_EQ(library.takeSteps(), (Steps { "factory tcp://h:1", "connect  ", "delete factory" }));

    EXPECT_TRUE(messager->stop());
    EXPECT_EQ(library.takeSteps(), Steps { "close" });
}

TEST_F(ScriptedStart, aFailureAtAnyStepIsReportedAndLeavesNoException)
{
    for (const char *word : { "factory", "connect", "clientId", "exceptionListener", "session",
             "topic", "producer", "consumer", "messageListener", "start" }) {
        SCOPED_TRACE(word);
        {
            const std::lock_guard<std::mutex> lock(mutex);
            notifications.clear();
        }
        library.reset();
        library.onStep(word, throwBrokerError);
        EXPECT_FALSE(messager->start());
        EXPECT_EQ(messager->errorString(), QStringLiteral("broken %1"));
        EXPECT_TRUE(announced("broken %1"));
        EXPECT_TRUE(messager->stop());
    }
}

TEST_F(ScriptedStart, whatWasMadeBeforeAFailureStaysHeld)
{
    library.onStep("producer", throwBrokerError);
    EXPECT_FALSE(messager->start());
    for (const std::string &step : library.steps())
        EXPECT_TRUE(step.rfind("delete ", 0) != 0 || step == "delete factory") << step;

    library.takeSteps();
    messager.reset();
    EXPECT_EQ(library.takeSteps(),
        (Steps { "close", "delete topic", "delete session", "delete connection", "shutdown" }));
}

TEST_F(ScriptedStart, exceptionsOfOtherClassesAreReportedToo)
{
    library.onStep("session", [] { throw std::runtime_error("out of sessions"); });
    EXPECT_FALSE(messager->start());
    EXPECT_EQ(messager->errorString(), QStringLiteral("out of sessions"));
    EXPECT_TRUE(announced("out of sessions"));
}

TEST_F(ScriptedStart, theLibraryIsSetUpForTheFirstMessagerAndShutDownAfterTheLast)
{
    auto second = std::make_unique<KVXCWMessageImpl>();
    messager.reset();
    EXPECT_EQ(library.steps(), Steps { "initialize" });
    second.reset();
    EXPECT_EQ(library.steps(), (Steps { "initialize", "shutdown" }));

    messager = std::make_unique<KVXCWMessageImpl>();
    EXPECT_EQ(library.count("initialize"), 2);
}

TEST_F(ScriptedStart, nothingIsEverSent)
{
    EXPECT_TRUE(messager->start());
    EXPECT_TRUE(messager->stop());
    messager.reset();
    EXPECT_EQ(library.count("send"), 0);
}

} // namespace kvx::test
