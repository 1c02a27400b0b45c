#include "client/TimeZone.h"

#include <cstdlib>
#include <filesystem>
#include <string>

namespace kvx::host {

void nameTimeZone()
{
    const std::string folder = "/zoneinfo/";
    std::error_code error;
    const std::string file = std::filesystem::canonical("/etc/localtime", error).string();
    const std::size_t at = file.find(folder);
    if (at != std::string::npos)
        setenv("TZ", file.c_str() + at + folder.size(), 0);
}

} // namespace kvx::host
