#include "Fixture.h"

using namespace kvx::test;

namespace {

class Publication : public ProjectFiles {
protected:
    void SetUp() override
    {
        ann = project("ann");
        ben = download(ann, "ben");
        ASSERT_TRUE(ben) << error.toStdString();
    }
    Database ann;
    Database ben;
};

TEST_F(Publication, IsKnownByItsIdAndAppliesNothing)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    const QString lost = prepare(ann); // merged by the server, the reply never arrived
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 6 WHERE id = 10"));
    const QByteArray before = ann->contentDigest();
    EXPECT_EQ(execute(ann, lost), 1) << ann->errorText().toStdString();
    EXPECT_EQ(ann->logVersion(), 0);
    EXPECT_EQ(ann->contentDigest(), before);
    EXPECT_EQ(ann->pendingCount(), 1) << "the later edit is not published yet";
    ASSERT_EQ(execute(ben, lost), 1);
    ASSERT_EQ(execute(ben, publish(ann)), 1);
    EXPECT_EQ(ben->contentDigest(), ann->contentDigest());
}

TEST_F(Publication, OfAnEarlierTryIsKnownToo)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    const QString first = prepare(ann);
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 6 WHERE id = 10"));
    const QString second = prepare(ann);
    EXPECT_EQ(execute(ann, first), 1) << ann->errorText().toStdString();
    EXPECT_EQ(ann->pendingCount(), 1);
    EXPECT_EQ(ann->logVersion(), 0);
    EXPECT_EQ(execute(ann, second), 1) << "not above the file's version: nothing happens";
    EXPECT_EQ(ann->pendingCount(), 1);
    EXPECT_FALSE(ann->published(1)) << "the second try is decided: it was not published";
    EXPECT_TRUE(ann->published(0)) << "but version 0 was";
}

TEST_F(Publication, IsDecidedByTheLogOfAnotherUser)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    prepare(ann);
    ASSERT_TRUE(sql(ben, "UPDATE items SET rate = 7 WHERE id = 11"));
    EXPECT_EQ(execute(ann, publish(ben)), 1);
    EXPECT_EQ(ann->pendingCount(), 1);
    EXPECT_FALSE(ann->published(1));
    EXPECT_EQ(execute(ben, publish(ann)), 1);
    EXPECT_EQ(ann->contentDigest(), ben->contentDigest());
}

TEST_F(Publication, IsConfirmedForThePreparedVersionOnly)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    EXPECT_FALSE(ann->published(0));
    prepare(ann);
    EXPECT_FALSE(ann->published(5));
    EXPECT_EQ(ann->pendingCount(), 1);
    EXPECT_TRUE(ann->published(0));
    EXPECT_TRUE(ann->published(0)) << "again is harmless";
    EXPECT_EQ(ann->logVersion(), 0);
    EXPECT_EQ(ann->pendingCount(), 0);
}

TEST_F(Publication, ThatTheFileCouldNotNoteIsMadeUpForByTheNextSave)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    ASSERT_EQ(execute(ben, prepare(ann)), 1);
    {
        const FileSizeLimit fullDisk(0);
        EXPECT_FALSE(ann->published(0));
        EXPECT_FALSE(ann->settle());
    }
    EXPECT_EQ(ann->logVersion(), -1);
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 7 WHERE id = 11"));
    EXPECT_EQ(ann->pendingCount(), 2);
    EXPECT_EQ(execute(ben, publish(ann)), 1) << ben->errorText().toStdString();
    EXPECT_EQ(ann->logVersion(), 1);
    EXPECT_EQ(ann->pendingCount(), 0);
    EXPECT_EQ(ann->contentDigest(), ben->contentDigest());
}

TEST_F(Publication, ThatTheFileCouldNotNoteIsMadeUpForByTheNextLog)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    ASSERT_EQ(execute(ben, prepare(ann)), 1);
    {
        const FileSizeLimit fullDisk(0);
        EXPECT_FALSE(ann->published(0));
    }
    ASSERT_TRUE(sql(ben, "UPDATE items SET rate = 7 WHERE id = 11"));
    EXPECT_EQ(execute(ann, publish(ben)), 1) << ann->errorText().toStdString();
    EXPECT_EQ(ann->logVersion(), 1);
    EXPECT_EQ(ann->pendingCount(), 0);
    EXPECT_EQ(ann->contentDigest(), ben->contentDigest());
}

TEST_F(Publication, OfADownloadedFileIsItsVersion)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    const QString log = prepare(ann);
    const QString uploaded = copyOf(ann->path(), "uploaded");
    ASSERT_TRUE(ann->published(0));
    const Database carl = open(uploaded, KVXProjectDatabase::Origin::Downloaded);
    ASSERT_TRUE(carl) << error.toStdString();
    EXPECT_EQ(carl->logVersion(), 0);
    EXPECT_EQ(carl->pendingCount(), 0);
    EXPECT_EQ(carl->contentDigest(), ann->contentDigest());
    ASSERT_EQ(execute(carl, log), 1);
    EXPECT_EQ(carl->contentDigest(), ann->contentDigest());
}

TEST_F(Publication, LeavesOutUnpublishedEditsOfADownloadedFile)
{
    const QByteArray base = ann->contentDigest();
    ASSERT_TRUE(sql(ann,
        "UPDATE items SET rate = 5 WHERE id = 10; DELETE FROM buildups;"
        "INSERT INTO chapters VALUES (9, 'x'); INSERT INTO items(id, chapter) VALUES (90, 9)"));
    const Database carl = download(ann, "carl"); // the base file, uploaded after an edit
    ASSERT_TRUE(carl) << error.toStdString();
    EXPECT_EQ(carl->logVersion(), -1);
    EXPECT_EQ(carl->pendingCount(), 0);
    EXPECT_EQ(carl->contentDigest(), base);
    ASSERT_EQ(execute(carl, publish(ann)), 1) << carl->errorText().toStdString();
    EXPECT_EQ(carl->contentDigest(), ann->contentDigest());
}

TEST_F(Publication, OfACopyThatWasNotAdoptedIsMetOnce)
{
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 5 WHERE id = 10"));
    const QString log = prepare(ann);
    const Database carl = open(copyOf(ann->path(), "carl"));
    ASSERT_TRUE(carl);
    EXPECT_EQ(carl->pendingCount(), 1);
    EXPECT_EQ(execute(carl, log), 1);
    EXPECT_EQ(carl->logVersion(), 0);
    EXPECT_EQ(carl->pendingCount(), 0);
}

} // namespace
