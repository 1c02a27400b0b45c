#include "support/PlainManagers.h"

#include <gtest/gtest.h>

namespace {

class ListOfRecords : public kvx::test::PlainProjectList<> {
public:
    KVXProjectInfo *add(const char *kind, const char *guid, const char *name)
    {
        auto *record = new KVXProjectInfo(
            QLatin1String(name), QLatin1String(kind), KVXProjectInfo::Closed, QDateTime());
        record->setGuid(QLatin1String(guid));
        m_projects[record->type()].append(record);
        return record;
    }
    int count() const
    {
        int records = 0;
        for (const auto &kind : m_projects)
            records += kind.size();
        return records;
    }
};

QString text(const char *latin1)
{
    return QLatin1String(latin1);
}

} // namespace

TEST(ProjectListBase, ABracketIsOpenUntilItsOutermostEnd)
{
    ListOfRecords list;
    EXPECT_FALSE(list.isUpdating());
    emit list.beginUpdate();
    EXPECT_TRUE(list.isUpdating());
    emit list.beginUpdate();
    emit list.endUpdate();
    EXPECT_TRUE(list.isUpdating());
    emit list.endUpdate();
    EXPECT_FALSE(list.isUpdating());
}

TEST(ProjectListBase, AnEndTooManyDoesNotSwallowTheNextBracket)
{
    ListOfRecords list;
    emit list.endUpdate();
    EXPECT_FALSE(list.isUpdating());
    emit list.beginUpdate();
    EXPECT_TRUE(list.isUpdating());
}

TEST(ProjectListBase, ReceiversOfTheBracketSeeTheNewState)
{
    ListOfRecords list;
    QList<bool> seen;
    QObject::connect(
        &list, &KVXCWProjectList::beginUpdate, [&] { seen.append(list.isUpdating()); });
    QObject::connect(&list, &KVXCWProjectList::endUpdate, [&] { seen.append(list.isUpdating()); });
    emit list.beginUpdate();
    emit list.endUpdate();
    EXPECT_EQ(seen, (QList<bool> { true, false }));
}

TEST(ProjectListBase, LookUpsAreExactAndTakeTheFirstMatch)
{
    ListOfRecords list;
    KVXProjectInfo *second = list.add("Tender", "{g}", "School");
    list.add("Tender", "{g}", "School");
    KVXProjectInfo *first = list.add("Estimate", "{g}", "School");
    EXPECT_EQ(list.getProjectInfoByGUID(text("{g}")), first);
    EXPECT_EQ(list.getProjectInfoByGUID(text("{G}")), nullptr);
    EXPECT_EQ(list.getProjectInfo(text("School"), Tender), second);
    EXPECT_EQ(list.getProjectInfo(text("school"), Tender), nullptr);
    EXPECT_EQ(list.getProjectInfo(text("School"), Addendum), nullptr);
    EXPECT_EQ(list.getProjectInfo(text("School"), static_cast<TProjectsType>(7)), nullptr);
    EXPECT_TRUE(list.existsProject(text("School")));
    EXPECT_FALSE(list.existsProject(text("Schoo")));
}

TEST(ProjectListBase, ARecordOfAnUnknownKindIsFound)
{
    ListOfRecords list;
    KVXProjectInfo *record = list.add("Forecast", "{f}", "Next year");
    EXPECT_EQ(list.getProjectInfoByGUID(text("{f}")), record);
    EXPECT_TRUE(list.existsProject(text("Next year")));
}

TEST(ProjectListBase, RemovingDeletesTheFirstRecordOnly)
{
    ListOfRecords list;
    list.add("Estimate", "{g}", "A");
    KVXProjectInfo *kept = list.add("Tender", "{g}", "B");
    EXPECT_TRUE(list.removeProject(text("{g}")));
    EXPECT_EQ(list.count(), 1);
    EXPECT_EQ(list.getProjectInfoByGUID(text("{g}")), kept);
    EXPECT_TRUE(list.removeProject(kept->guid())) << "a text inside the record itself";
    EXPECT_FALSE(list.removeProject(text("{g}")));
    EXPECT_TRUE(list.projects().isEmpty());
}

TEST(ProjectListBase, ClearingDeletesAllRecordsOfTheProject)
{
    ListOfRecords list;
    list.add("Estimate", "{g}", "A");
    KVXProjectInfo *last = list.add("Tender", "{g}", "B");
    list.add("Tender", "{other}", "C");
    EXPECT_TRUE(list.clearProject(last->guid())) << "a text inside a record that is deleted";
    EXPECT_EQ(list.count(), 1);
    EXPECT_FALSE(list.clearProject(text("{g}")));
}

TEST(ProjectListBase, KindTexts)
{
    EXPECT_EQ(KVXCWProjectList::getProjectType(Estimate), text("Estimate"));
    EXPECT_EQ(KVXCWProjectList::getProjectType(Tender), text("Tender"));
    EXPECT_EQ(KVXCWProjectList::getProjectType(Addendum), text("Addendum"));
    EXPECT_EQ(KVXCWProjectList::getProjectType(BQLibrary), text("BQLibrary"));
    EXPECT_EQ(KVXCWProjectList::getProjectType(ResourceLibrary), text("ResourceLibrary"));
    EXPECT_TRUE(KVXCWProjectList::getProjectType(static_cast<TProjectsType>(5)).isEmpty());
}
