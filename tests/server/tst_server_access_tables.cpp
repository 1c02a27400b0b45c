#include "AccessModel.h"
#include "AccessWorld.h"

#include "support/Watchdog.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

// Random tables of roles, with random people in them and random levels in the projects: whatever
// an administrator may set up, the server judges as the model does.

using namespace kvx::test;

namespace {

constexpr Caller callers[]
    = { Caller::Other, Caller::Reader, Caller::Writer, Caller::Creator, Caller::Administrator };
constexpr Object objects[] = { Object::Own, Object::Foreign, Object::Missing };

} // namespace

TEST(AccessTables, AnyTableOfRolesIsJudgedAsTheModelSays)
{
    const bool everything = std::getenv("KVX_TEST_LONG") != nullptr;
    const unsigned tables = everything ? 200 : 5;
    Watchdog::allow(everything ? 2500 : 200);
    World world;
    int cases = 0;
    int granted = 0;
    for (unsigned seed = 1; seed <= tables; ++seed) {
        std::mt19937 source(seed);
        const Scenario scenario = Scenario::random(source);
        SCOPED_TRACE("table " + std::to_string(seed) + '\n' + scenario.text());
        world.give(scenario);
        for (const Expectation &row : accessModel()) {
            for (const Caller caller : callers) {
                const Person who(world.scenario(), caller);
                for (const Object object : objects) {
                    const Outcome expected = row.outcome(who, object);
                    const std::string what = row.service + ' ' + row.variant + ", " + nameOf(caller)
                        + ", " + nameOf(object);
                    const int status = world.ask(caller, row, object);
                    EXPECT_EQ(status, expected.status) << what;
                    ++cases;
                    granted += status == 1;
                    if (expected.status != 1 || !expected.mayChange) {
                        EXPECT_TRUE(world.digest() == world.given())
                            << what << " changed something";
                    }
                    if (status == 1)
                        world.restore();
                }
            }
        }
    }
    std::printf("%u tables of roles, %d cases, %d of them granted\n", tables, cases, granted);
    EXPECT_GT(cases, int(tables) * 1100);
    EXPECT_GT(granted, cases / 10);
}
