#include "admin/AuditCommands.h"
#include "admin/GroupCommands.h"
#include "admin/ItemCommands.h"
#include "admin/LockCommands.h"
#include "admin/ProjectAdminCommands.h"
#include "admin/ReportCommands.h"
#include "admin/ResourceCommands.h"
#include "admin/RoleCommands.h"
#include "admin/SessionCommands.h"
#include "admin/TableCommands.h"
#include "admin/TemplateCommands.h"
#include "admin/UserCommands.h"

namespace kvx::server {

const std::vector<AdminNoun> &allAdminNouns()
{
    static const std::vector<AdminNoun> nouns = {
        { "user", "accounts", &userCommands },
        { "role", "roles", &roleCommands },
        { "project", "projects", &projectAdminCommands },
        { "session", "who is logged in", &sessionCommands },
        { "lock", "locks", &lockCommands },
        { "item", "checked-out items", &itemCommands },
        { "group", "groups of projects", &groupCommands },
        { "template", "report templates", &templateCommands },
        { "table", "tables that the users share", &tableCommands },
        { "resource", "the package of common resources", &resourceCommands },
        { "audit", "the log of changes", &auditCommands },
        { "report", "figures over the whole server", &reportCommands },
    };
    return nouns;
}

} // namespace kvx::server
