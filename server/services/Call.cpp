#include "services/Call.h"
#include "base/Config.h"

#include <unistd.h>

namespace kvx::server {

ReceivedFile::ReceivedFile(std::string path, std::int64_t size, std::string sha256, std::string md5)
    : path(std::move(path))
    , size(size)
    , sha256(std::move(sha256))
    , md5(std::move(md5))
{
}

ReceivedFile::~ReceivedFile()
{
    unlink(path.c_str());
}

Call::Call(const Environment &environment, Db &db, const Request &request)
    : m_environment(environment)
    , m_db(db)
    , m_request(request)
    , m_now(environment.clock.now())
{
}

std::optional<ProjectAccess> Call::findProject(const std::string &guid)
{
    return server::findProject(m_db, config(), m_now, guid, m_caller->userId, m_caller->rights);
}

void Call::announce(Announcement announcement)
{
    announcement.sender = m_caller ? m_caller->email : std::string();
    addAnnouncement(m_db, m_now, announcement);
    m_announced = true;
}

void Call::endSession(std::int64_t sessionId)
{
    for (const std::int64_t project : server::endSession(m_db, sessionId).unlockedProjects)
        wakeHeld(logLockKey(project));
    noteSessions();
}

void Call::audit(int status, const std::string &object, const std::string &detail)
{
    AuditEntry entry;
    if (m_caller) {
        entry.userId = m_caller->userId;
        entry.sessionId = m_caller->sessionId;
    }
    entry.address = m_address;
    entry.service = m_request.service();
    if (m_project)
        entry.projectId = m_project->id;
    entry.object = object;
    entry.status = status;
    entry.detail = detail;
    addAudit(m_db, m_environment.processId, m_now, entry);
}

} // namespace kvx::server
