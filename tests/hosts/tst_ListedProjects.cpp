#include "client/ListedProjects.h"

#include "support/PlainManagers.h"

#include <gtest/gtest.h>

namespace {

class ListOfEntries : public kvx::test::PlainProjectList<> {
public:
    void add(const char *kind, const char *guid, const char *name)
    {
        auto *record = new KVXProjectInfo(
            QLatin1String(name), QLatin1String(kind), KVXProjectInfo::Closed, QDateTime());
        record->setGuid(QLatin1String(guid));
        m_projects[record->type()].append(record);
    }
};

QStringList namesOf(const KVXCWProjectList &list)
{
    QStringList names;
    for (const KVXProjectInfo *info : kvx::host::listedProjects(list))
        names.append(info->name());
    return names;
}

} // namespace

TEST(ListedProjects, AProjectThatTheListHoldsTwiceIsShownOnceAsLookUpsFindIt)
{
    ListOfEntries list;
    list.add("Tender", "{a}", "first");
    list.add("Tender", "{b}", "between");
    list.add("Tender", "{a}", "second");
    list.add("Tender", "{a}", "third");
    EXPECT_EQ(namesOf(list), (QStringList { QStringLiteral("first"), QStringLiteral("between") }));
    EXPECT_EQ(
        kvx::host::listedProjects(list).first(), list.getProjectInfoByGUID(QStringLiteral("{a}")));
}

TEST(ListedProjects, TheSameProjectUnderTwoKindsIsShownOnce)
{
    ListOfEntries list;
    list.add("Tender", "{a}", "tender");
    list.add("Estimate", "{a}", "estimate");
    ASSERT_EQ(namesOf(list).size(), 1);
    EXPECT_EQ(
        kvx::host::listedProjects(list).first(), list.getProjectInfoByGUID(QStringLiteral("{a}")));
}

TEST(ListedProjects, ProjectsOfOneNameAreAllShown)
{
    ListOfEntries list;
    list.add("Tender", "{a}", "same");
    list.add("Tender", "{A}", "same");
    list.add("Estimate", "{b}", "same");
    EXPECT_EQ(namesOf(list).size(), 3);
}

TEST(ListedProjects, AnEmptyListShowsNothing)
{
    EXPECT_TRUE(namesOf(ListOfEntries()).isEmpty());
}
