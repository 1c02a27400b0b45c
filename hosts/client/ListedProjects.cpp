#include "client/ListedProjects.h"

#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXProjectInfo.h>
#include <QSet>

namespace kvx::host {

QList<const KVXProjectInfo *> listedProjects(const KVXCWProjectList &list)
{
    QList<const KVXProjectInfo *> listed;
    QSet<QString> guids;
    for (const QList<KVXProjectInfo *> &kind : list.projects()) {
        for (const KVXProjectInfo *info : kind) {
            if (!guids.contains(info->guid())) {
                guids.insert(info->guid());
                listed.append(info);
            }
        }
    }
    return listed;
}

} // namespace kvx::host
