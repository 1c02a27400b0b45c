#include "ServiceHarness.h"

using namespace kvx::test;

TEST(ProjectServices, ANewProjectIsListed)
{
    ServiceHarness harness;
    const Session anna = harness.join("anna@example.com");
    const Answer created = anna.ask(newProject(anna, guidOf(1), "School Nordring"));
    EXPECT_EQ(created.json(), R"({"statuscode":1})");
    const Answer list = anna.ask(Message("projectlistsynctolocal"));
    EXPECT_EQ(list.keys(), "statuscode data");
    EXPECT_EQ(list["data"]["Projects"].Size(), 1u) << list.json();
}
