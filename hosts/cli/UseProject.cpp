#include "cli/UseProject.h"

#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXProjectInfo.h>

namespace kvx::cli {

host::OpenProject *useProject(Context &context, const std::string &project)
{
    host::OpenProject::Failure failure;
    host::OpenProject *open = context.client.use(QString::fromStdString(project), &failure);
    if (!open)
        context.output.failed(Refused, failure.text, { { QStringLiteral("code"), failure.code } });
    else if (!open->notice().isEmpty())
        context.output.line(open->notice());
    return open;
}

QList<int> findItems(
    Context &context, host::OpenProject &project, const std::vector<std::string> &names)
{
    QList<int> ids;
    for (const std::string &name : names) {
        const QString text = QString::fromStdString(name);
        const auto item = text.startsWith(QLatin1Char('#'))
            ? project.bill().item(text.mid(1).toInt())
            : project.bill().itemByNumber(text);
        if (!item) {
            context.output.failed(Refused, QStringLiteral("There is no item %1.").arg(text));
            return {};
        }
        ids.append(item->id);
    }
    return ids;
}

bool mayOnlyRead(const host::OpenProject &project)
{
    const KVXCollaborator *managers = KVXCollaborator::getInstance();
    const KVXUser *user = managers->loginManager()->currentUser();
    const KVXProjectInfo *info
        = managers->projectListManager()->getProjectInfoByGUID(project.guid());
    return user && info && info->permission(*user, KVXProjectInfo::ProjectRW) == 0;
}

} // namespace kvx::cli
