#include <KVXCollaboration/KVXCWProjectList.h>

#include <algorithm>
#include <utility>

KVXCWProjectList::KVXCWProjectList()
{
    // Connected before anybody else can be, so every receiver already sees the new state.
    connect(
        this, &KVXCWProjectList::beginUpdate, this, [this] { ++m_updating; }, Qt::DirectConnection);
    connect(
        this, &KVXCWProjectList::endUpdate, this,
        [this] { m_updating = std::max(m_updating - 1, 0); }, Qt::DirectConnection);
}

KVXCWProjectList::~KVXCWProjectList()
{
    for (const QList<KVXProjectInfo *> &records : std::as_const(m_projects))
        qDeleteAll(records);
}

bool KVXCWProjectList::removeProject(const QString &guid)
{
    for (auto kind = m_projects.begin(); kind != m_projects.end(); ++kind) {
        for (int index = 0; index < kind->size(); ++index) {
            if (kind->at(index)->guid() != guid)
                continue;
            delete kind->takeAt(index);
            if (kind->isEmpty())
                m_projects.erase(kind);
            return true;
        }
    }
    return false;
}

bool KVXCWProjectList::existsProject(const QString &name)
{
    for (const QList<KVXProjectInfo *> &records : std::as_const(m_projects)) {
        for (const KVXProjectInfo *record : records) {
            if (record->name() == name)
                return true;
        }
    }
    return false;
}

KVXProjectInfo *KVXCWProjectList::getProjectInfoByGUID(const QString &guid)
{
    for (const QList<KVXProjectInfo *> &records : std::as_const(m_projects)) {
        for (KVXProjectInfo *record : records) {
            if (record->guid() == guid)
                return record;
        }
    }
    return nullptr;
}

KVXProjectInfo *KVXCWProjectList::getProjectInfo(const QString &name, TProjectsType type)
{
    const QList<KVXProjectInfo *> records = m_projects.value(getProjectType(type));
    for (KVXProjectInfo *record : records) {
        if (record->name() == name)
            return record;
    }
    return nullptr;
}

bool KVXCWProjectList::clearProject(const QString &guid)
{
    bool found = false;
    // The loop calls this class's version: an implementation's removeProject asks the server.
    // The GUID is copied because the caller's may live in a record that is deleted.
    const QString cleared = guid;
    while (KVXCWProjectList::removeProject(cleared))
        found = true;
    return found;
}

QString KVXCWProjectList::getProjectType(TProjectsType type)
{
    switch (type) {
    case Estimate:
        return QStringLiteral("Estimate");
    case Tender:
        return QStringLiteral("Tender");
    case Addendum:
        return QStringLiteral("Addendum");
    case BQLibrary:
        return QStringLiteral("BQLibrary");
    case ResourceLibrary:
        return QStringLiteral("ResourceLibrary");
    }
    return {};
}
