#include "services/Announcements.h"
#include "base/JsonText.h"

namespace kvx::server {

namespace {

constexpr std::size_t mostNamed = 1000;

} // namespace

Announcement itemsAnnouncement(std::int64_t projectId, const std::string &guid,
    const std::string &command, std::int64_t module)
{
    Announcement announcement;
    announcement.type = "notifymsg_checkout";
    announcement.command = command;
    announcement.content = "{\"Command\":" + jsonText(command)
        + ",\"ProjectGUID\":" + jsonText(guid) + ",\"ModuleType\":" + std::to_string(module) + '}';
    announcement.projectId = projectId;
    return announcement;
}

Announcement rolesAnnouncement(const std::vector<std::string> &emails)
{
    std::string users;
    if (emails.size() <= mostNamed) {
        for (const std::string &email : emails)
            users += (users.empty() ? "" : ",") + jsonText(email);
    }
    Announcement announcement;
    announcement.type = "notifymsg_role";
    announcement.command = "Update";
    announcement.content = "{\"Command\":\"Update\",\"Users\":[" + users + "]}";
    announcement.topic = "roles";
    return announcement;
}

} // namespace kvx::server
