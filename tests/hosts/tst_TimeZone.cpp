#include "client/TimeZone.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace {

class TimeZones : public testing::Test {
protected:
    TimeZones()
    {
        if (const char *value = getenv("TZ"))
            m_before = value;
        set({});
    }
    ~TimeZones() override { set(m_before); }

    static void set(const std::optional<std::string> &zone)
    {
        zone ? setenv("TZ", zone->c_str(), 1) : unsetenv("TZ");
        tzset();
    }

private:
    std::optional<std::string> m_before;
};

std::string localText(std::time_t moment)
{
    tm parts {};
    localtime_r(&moment, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%F %T %z %Z", &parts);
    return text;
}

} // namespace

TEST_F(TimeZones, TheNamedZoneIsTheMachinesOwn)
{
    std::vector<std::string> before;
    for (std::time_t moment = 0; moment < 2'000'000'000; moment += 1'000'003)
        before.push_back(localText(moment));
    kvx::host::nameTimeZone();
    tzset();
    auto expected = before.begin();
    for (std::time_t moment = 0; moment < 2'000'000'000; moment += 1'000'003)
        EXPECT_EQ(localText(moment), *expected++);
}

TEST_F(TimeZones, AZoneThatIsSetStays)
{
    set("Europe/Berlin");
    kvx::host::nameTimeZone();
    EXPECT_STREQ(getenv("TZ"), "Europe/Berlin");
}
