#include "admin/AdminCommand.h"

#include <ctime>

namespace kvx::server {

std::string CommandArguments::text(const std::string &name) const
{
    const auto found = m_values.find(name);
    return found == m_values.end() || found->second.empty() ? std::string() : found->second.front();
}

std::vector<std::string> CommandArguments::texts(const std::string &name) const
{
    const auto found = m_values.find(name);
    return found == m_values.end() ? std::vector<std::string>() : found->second;
}

std::int64_t CommandArguments::number(const std::string &name) const
{
    return std::stoll(text(name));
}

std::vector<std::int64_t> CommandArguments::numbers(const std::string &name) const
{
    std::vector<std::int64_t> numbers;
    for (const std::string &text : texts(name))
        numbers.push_back(std::stoll(text));
    return numbers;
}

std::int64_t CommandArguments::day(const std::string &name) const
{
    const std::string given = text(name);
    std::tm day {};
    day.tm_isdst = -1;
    const char *end = strptime(given.c_str(), "%Y-%m-%d", &day);
    const std::tm wanted = day;
    const std::time_t seconds = end && *end == '\0' ? std::mktime(&day) : -1;
    if (seconds == -1 || day.tm_mday != wanted.tm_mday)
        throw CommandUsage(name + " must be a day like 2026-11-21, not \"" + given + '"');
    return static_cast<std::int64_t>(seconds) * 1000;
}

std::int64_t dayAfter(std::int64_t midnight)
{
    const std::time_t seconds = static_cast<std::time_t>(midnight / 1000);
    std::tm day {};
    localtime_r(&seconds, &day);
    ++day.tm_mday;
    day.tm_isdst = -1;
    return static_cast<std::int64_t>(std::mktime(&day)) * 1000;
}

} // namespace kvx::server
