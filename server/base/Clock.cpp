#include "base/Clock.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace kvx::server {

namespace {

std::string formatted(Time time, const char *format)
{
    const std::time_t seconds = static_cast<std::time_t>(time / 1000);
    std::tm parts {};
    localtime_r(&seconds, &parts);
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, format, &parts));
}

} // namespace

Time wallTime()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

Clock::Clock(Time highest)
    : m_start(std::max(wallTime(), highest))
    , m_steadyStart(std::chrono::steady_clock::now())
{
}

Time Clock::now() const
{
    using namespace std::chrono;
    return m_start + duration_cast<milliseconds>(steady_clock::now() - m_steadyStart).count();
}

Time Clock::forFiles() const
{
    const Time time = now();
    const Time behind = time - wall();
    Time furthest = m_behind;
    while (behind > furthest && !m_behind.compare_exchange_weak(furthest, behind)) { }
    return time - std::max(behind, furthest);
}

std::string minuteText(Time time)
{
    return formatted(time, "%Y-%m-%d %H:%M");
}

std::string secondText(Time time)
{
    return formatted(time, "%Y-%m-%d %H:%M:%S");
}

std::string utcText(Time time)
{
    const std::time_t seconds = static_cast<std::time_t>(time / 1000);
    std::tm parts {};
    gmtime_r(&seconds, &parts);
    char day[32];
    std::strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &parts);
    char text[48];
    std::snprintf(text, sizeof text, "%s.%03dZ", day, static_cast<int>(time % 1000));
    return text;
}

} // namespace kvx::server
