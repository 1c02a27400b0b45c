#include "cli/UseProject.h"

#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXProjectInfo.h>

namespace kvx::cli {

host::OpenProject *useProject(Context &context, const std::string &project, int &refusal)
{
    host::OpenProject::Failure failure;
    host::OpenProject *open = context.client.use(QString::fromStdString(project), &failure);
    if (!open)
        refusal = mergeFailed(
            context, failure.text, failure.clash, { { QStringLiteral("code"), failure.code } });
    else if (!open->notice().isEmpty())
        context.output.line(open->notice());
    return open;
}

int mergeFailed(Context &context, const QString &reason, bool clash, QJsonObject data)
{
    if (!clash)
        return context.output.failed(Refused, reason, std::move(data));
    return context.output.failed(Clash,
        reason + QStringLiteral(" Save with --mine or --theirs; what gives way is kept in a file."),
        std::move(data));
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
