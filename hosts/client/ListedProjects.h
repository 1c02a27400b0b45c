#pragma once

#include <QList>

class KVXCWProjectList;
class KVXProjectInfo;

namespace kvx::host {

/// The list as its user sees it: one record for each GUID, in the list's order. Where the list
/// holds two, the first one, which look-ups give and notifications change. Valid until the next
/// change of the list.
QList<const KVXProjectInfo *> listedProjects(const KVXCWProjectList &list);

} // namespace kvx::host
