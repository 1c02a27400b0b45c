#include "Fixture.h"

#include "KVXSQLite/ApplyLog.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <random>

using namespace kvx::test;
using testing::HasSubstr;

namespace {

class Conflicts : public ProjectFiles {
protected:
    void SetUp() override
    {
        ann = project("ann");
        ben = download(ann, "ben");
    }
    /// Ann publishes her edit; ben, who made his own, meets it with this choice.
    int clash(const char *annsEdit, const char *bensEdit, Choice choice)
    {
        EXPECT_TRUE(sql(ann, annsEdit)) << ann->errorText().toStdString();
        EXPECT_TRUE(sql(ben, bensEdit)) << ben->errorText().toStdString();
        log = publish(ann);
        ben->setClashChoice(choice);
        return execute(ben, log);
    }
    QJsonArray conflicts()
    {
        QFile source(ben->conflictsFile());
        if (!source.open(QIODevice::ReadOnly))
            return {};
        return QJsonDocument::fromJson(source.readAll())
            .object()
            .value(QStringLiteral("conflicts"))
            .toArray();
    }
    std::string text(const QJsonValue &conflict, const char *key)
    {
        const QJsonValue value = conflict.toObject().value(QLatin1String(key));
        if (value.isString())
            return value.toString().toStdString();
        return QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact).toStdString();
    }
    /// Ben publishes what he has left; afterwards both hold the same.
    void expectConverges()
    {
        ben->setClashChoice(Choice::Refuse);
        ASSERT_EQ(execute(ann, publish(ben)), 1) << ann->errorText().toStdString();
        EXPECT_EQ(ann->contentDigest(), ben->contentDigest());
        EXPECT_EQ(ann->logVersion(), ben->logVersion());
    }

    Database ann;
    Database ben;
    QString log;
};

TEST_F(Conflicts, FailTheLogAndChangeNothingWithoutAChoice)
{
    ASSERT_TRUE(sql(ben,
        "UPDATE items SET rate = 70 WHERE id = 10; UPDATE items SET text = 'mine' WHERE id = 11"));
    const QByteArray before = ben->contentDigest();
    EXPECT_EQ(clash("UPDATE items SET rate = 50 WHERE id = 10", "SELECT 1", Choice::Refuse), 0);
    EXPECT_EQ(ben->failure(), Failure::Clash);
    EXPECT_EQ(ben->errorText(),
        QStringLiteral("change log 0 clashes with edits that are not published: table \"items\", "
                       "row 10: changed on both sides"));
    EXPECT_EQ(ben->contentDigest(), before);
    EXPECT_EQ(ben->logVersion(), -1);
    EXPECT_EQ(ben->pendingCount(), 1);
    EXPECT_TRUE(ben->conflictsFile().isEmpty());
}

TEST_F(Conflicts, DoNotArisePerRowWhenDifferentColumnsChanged)
{
    EXPECT_EQ(clash("UPDATE items SET rate = 50 WHERE id = 10",
                  "UPDATE items SET text = 'mine' WHERE id = 10", Choice::Refuse),
        1);
    EXPECT_EQ(value(ben, "SELECT rate || text FROM items WHERE id = 10"), "50.0mine");
    expectConverges();
}

TEST_F(Conflicts, ResolvedAsMineKeepMyVersionAndNoteTheirs)
{
    EXPECT_EQ(
        clash("UPDATE items SET rate = 50 WHERE id = 10; UPDATE items SET rate = 51 WHERE id = 11",
            "UPDATE items SET rate = 70 WHERE id = 10; UPDATE items SET text = 'b' WHERE id = 20",
            Choice::Mine),
        1)
        << ben->errorText().toStdString();
    EXPECT_EQ(value(ben, "SELECT group_concat(rate) FROM items WHERE id < 20"), "70.0,51.0");
    EXPECT_EQ(value(ben, "SELECT text FROM items WHERE id = 20"), "b");
    ASSERT_EQ(conflicts().size(), 1);
    const QJsonValue conflict = conflicts().at(0);
    EXPECT_EQ(text(conflict, "table"), "items");
    EXPECT_EQ(text(conflict, "key"), "{\"id\":10}");
    EXPECT_EQ(text(conflict, "edit"), "update");
    EXPECT_EQ(text(conflict, "reason"), "changed by both sides");
    EXPECT_EQ(text(conflict, "before"), "{\"id\":10,\"rate\":8}");
    EXPECT_EQ(text(conflict, "mine"), "{\"rate\":70}");
    EXPECT_EQ(text(conflict, "theirs"),
        "{\"chapter\":1,\"id\":10,\"note\":null,\"quantity\":12.5,\"rate\":50,\"text\":"
        "\"Excavate\"}");
    EXPECT_EQ(text(conflict, "kept"), "mine");
    EXPECT_EQ(ben->pendingCount(), 1);
    expectConverges();
    EXPECT_EQ(value(ann, "SELECT rate FROM items WHERE id = 10"), "70.0");
}

TEST_F(Conflicts, ResolvedAsTheirsKeepTheRestOfMine)
{
    EXPECT_EQ(
        clash("UPDATE items SET rate = 50 WHERE id = 10",
            "UPDATE items SET rate = 70 WHERE id = 10; UPDATE items SET text = 'b' WHERE id = 20",
            Choice::Theirs),
        1);
    EXPECT_EQ(value(ben, "SELECT rate FROM items WHERE id = 10"), "50.0");
    EXPECT_EQ(value(ben, "SELECT text FROM items WHERE id = 20"), "b");
    ASSERT_EQ(conflicts().size(), 1);
    EXPECT_EQ(text(conflicts().at(0), "mine"), "{\"rate\":70}");
    EXPECT_EQ(text(conflicts().at(0), "kept"), "theirs");
    expectConverges();
}

TEST_F(Conflicts, WithADeletedRowKeepMyEditInTheFile)
{
    for (const Choice choice : { Choice::Mine, Choice::Theirs }) {
        const std::string id = choice == Choice::Mine ? "10" : "11";
        EXPECT_EQ(clash(("DELETE FROM items WHERE id = " + id).c_str(),
                      ("UPDATE items SET text = 'mine' WHERE id = " + id).c_str(), choice),
            1);
        ASSERT_EQ(conflicts().size(), 1);
        EXPECT_EQ(text(conflicts().at(0), "mine"), "{\"text\":\"mine\"}");
        EXPECT_EQ(text(conflicts().at(0), "reason"), "deleted by the other side");
        EXPECT_EQ(text(conflicts().at(0), "kept"), "theirs");
        EXPECT_TRUE(conflicts().at(0).toObject().value(QStringLiteral("theirs")).isNull());
        EXPECT_EQ(ben->pendingCount(), 0);
    }
    expectConverges();
}

TEST_F(Conflicts, WithMyDeletionFollowTheChoice)
{
    EXPECT_EQ(clash("UPDATE items SET rate = 1 WHERE id = 10", "DELETE FROM items WHERE id = 10",
                  Choice::Mine),
        1);
    EXPECT_EQ(value(ben, "SELECT count(*) FROM items WHERE id = 10"), "0");
    EXPECT_TRUE(conflicts().at(0).toObject().value(QStringLiteral("mine")).isNull());
    expectConverges();
    EXPECT_EQ(clash("UPDATE items SET rate = 1 WHERE id = 11", "DELETE FROM items WHERE id = 11",
                  Choice::Theirs),
        1);
    EXPECT_EQ(value(ben, "SELECT rate FROM items WHERE id = 11"), "1.0");
    expectConverges();
}

TEST_F(Conflicts, OfTwoInsertionsFollowTheChoice)
{
    EXPECT_EQ(clash("INSERT INTO chapters VALUES (5, 'ann')",
                  "INSERT INTO chapters VALUES (5, 'ben')", Choice::Mine),
        1);
    EXPECT_EQ(value(ben, "SELECT title FROM chapters WHERE id = 5"), "ben");
    expectConverges();
    EXPECT_EQ(clash("INSERT INTO chapters VALUES (6, 'ann')",
                  "INSERT INTO chapters VALUES (6, 'ben')", Choice::Theirs),
        1);
    EXPECT_EQ(value(ben, "SELECT title FROM chapters WHERE id = 6"), "ann");
    expectConverges();
    EXPECT_EQ(value(ann, "SELECT title FROM chapters WHERE id = 5"), "ben");
}

TEST_F(Conflicts, OfReferencesKeepWhatStillFits)
{
    // My new chapter with its item fits; my item in the chapter that is gone does not.
    EXPECT_EQ(clash("DELETE FROM items WHERE chapter = 2; DELETE FROM chapters WHERE id = 2",
                  "INSERT INTO items(id, chapter, text) VALUES (60, 2, 'orphan'), (61, 8, 'child');"
                  "INSERT INTO chapters VALUES (8, 'parent')",
                  Choice::Mine),
        1)
        << ben->errorText().toStdString();
    EXPECT_EQ(value(ben, "SELECT group_concat(id) FROM items WHERE id >= 60"), "61");
    ASSERT_EQ(conflicts().size(), 1);
    EXPECT_EQ(text(conflicts().at(0), "key"), "{\"id\":60}");
    EXPECT_EQ(text(conflicts().at(0), "kept"), "theirs");
    EXPECT_THAT(text(conflicts().at(0), "reason"), HasSubstr("refers to a row that is missing"));
    EXPECT_EQ(value(ben, "PRAGMA foreign_key_check"), "no row");
    expectConverges();
}

TEST_F(Conflicts, WithTheDeletionOfAReferredRowGiveTheDeletionUp)
{
    EXPECT_EQ(
        clash("INSERT INTO items(id, chapter) VALUES (70, 2)",
            "DELETE FROM items WHERE chapter = 2; DELETE FROM chapters WHERE id = 2", Choice::Mine),
        1);
    EXPECT_EQ(value(ben, "SELECT count(*) FROM chapters WHERE id = 2"), "1");
    ASSERT_EQ(conflicts().size(), 1);
    EXPECT_EQ(text(conflicts().at(0), "table"), "chapters");
    expectConverges();
}

TEST_F(Conflicts, AreNoneWhenBothMadeTheSameChange)
{
    EXPECT_EQ(
        clash("UPDATE items SET rate = 50 WHERE id = 10; DELETE FROM buildups WHERE part = 'plant';"
              "INSERT INTO chapters VALUES (5, 'same')",
            "UPDATE items SET rate = 50 WHERE id = 10; DELETE FROM buildups WHERE part = 'plant';"
            "INSERT INTO chapters VALUES (5, 'same'); UPDATE items SET text = 'b' WHERE id = 10",
            Choice::Refuse),
        1)
        << ben->errorText().toStdString();
    EXPECT_EQ(ben->contentDigest() == ann->contentDigest(), false);
    // What both made is published; the next log may change it again without a clash.
    EXPECT_EQ(clash("UPDATE items SET rate = 51 WHERE id = 10; DELETE FROM chapters WHERE id = 5;"
                    "INSERT INTO buildups VALUES (10, 'plant', 9)",
                  "SELECT 1", Choice::Refuse),
        1)
        << ben->errorText().toStdString();
    EXPECT_EQ(value(ben, "SELECT rate || text FROM items WHERE id = 10"), "51.0b");
    expectConverges();
}

TEST_F(Conflicts, FilesAreNeverOverwritten)
{
    QStringList files;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(
            clash(("UPDATE items SET rate = 1" + std::to_string(i) + " WHERE id = 10").c_str(),
                ("UPDATE items SET rate = 2" + std::to_string(i) + " WHERE id = 10").c_str(),
                Choice::Theirs),
            1);
        files.append(ben->conflictsFile());
    }
    EXPECT_EQ(files.removeDuplicates(), 0);
    for (const QString &path : files)
        EXPECT_TRUE(QFile::exists(path));
    EXPECT_THAT(files.first().toStdString(), HasSubstr("ben.conflicts-0-1.json"));
}

TEST_F(Conflicts, AreKeptBesideAProjectWhoseNameHoldsPlaceholders)
{
    ben = download(ann, "127%2E0%3A1 %1");
    EXPECT_EQ(clash("UPDATE items SET rate = 1 WHERE id = 10",
                  "UPDATE items SET rate = 2 WHERE id = 10", Choice::Mine),
        1)
        << ben->errorText().toStdString();
    EXPECT_EQ(ben->conflictsFile().toStdString(),
        file("127%2E0%3A1 %1.conflicts-0-1.json").toStdString());
    EXPECT_EQ(conflicts().size(), 1);
}

TEST_F(Conflicts, ThatCannotBeNotedFailTheLog)
{
    const QByteArray base = ben->contentDigest();
    ASSERT_TRUE(sql(ann, "UPDATE items SET rate = 1 WHERE id = 10"));
    ASSERT_TRUE(sql(ben, "UPDATE items SET rate = 2 WHERE id = 10"));
    const QByteArray before = ben->contentDigest();
    ASSERT_NE(base, before);
    kvx::sqlite::CommandFile command;
    ASSERT_TRUE(command.loadFromFile(publish(ann)));
    kvx::sqlite::Connection connection;
    ASSERT_TRUE(
        connection.open(file("ben").toStdString(), kvx::sqlite::Connection::Role::Apply).ok());
    QString path;
    const kvx::sqlite::Status status = kvx::sqlite::ApplyLog(connection)
                                           .execute(command, file("no/such/folder/ben"),
                                               kvx::sqlite::Rebase::Winner::Theirs, &path);
    EXPECT_THAT(status.text, HasSubstr("writing the conflicts file"));
    EXPECT_EQ(ben->contentDigest(), before);
    EXPECT_EQ(ben->logVersion(), -1);
    EXPECT_EQ(ben->pendingCount(), 1);
}

TEST_F(Conflicts, OfRandomEditsAlwaysConvergeAndLoseNothing)
{
    for (unsigned seed = 1; seed <= 8; ++seed) {
        std::minstd_rand random(seed);
        const auto edit = [&random] {
            const std::string id = std::to_string(100 + random() % 12);
            const std::string chapter = std::to_string(1 + random() % 4);
            const std::string number = std::to_string(random() % 5);
            switch (random() % 6) {
            case 0:
                return "INSERT OR IGNORE INTO items(id, chapter, rate) SELECT " + id + ", id, "
                    + number + " FROM chapters WHERE id = " + chapter;
            case 1:
                return "UPDATE items SET rate = " + number + " WHERE id = " + id;
            case 2:
                return "UPDATE items SET text = 't" + number + "', quantity = " + number
                    + " WHERE id = " + id;
            case 3:
                return "DELETE FROM items WHERE id = " + id;
            case 4:
                return "DELETE FROM items WHERE chapter = " + chapter
                    + "; DELETE FROM chapters WHERE id = " + chapter;
            default:
                return "INSERT OR IGNORE INTO chapters VALUES (" + chapter + ", 'c" + number + "')";
            }
        };
        ann = project(("ann" + std::to_string(seed)).c_str());
        ben = download(ann, ("ben" + std::to_string(seed)).c_str());
        for (int round = 0; round < 20; ++round) {
            for (int i = 0; i < 4; ++i) {
                ASSERT_TRUE(sql(ann, edit())) << ann->errorText().toStdString();
                ASSERT_TRUE(sql(ben, edit())) << ben->errorText().toStdString();
            }
            ben->setClashChoice(random() % 2 ? Choice::Mine : Choice::Theirs);
            ASSERT_EQ(execute(ben, publish(ann)), 1)
                << "seed " << seed << " round " << round << ": " << ben->errorText().toStdString();
            ASSERT_EQ(value(ben, "PRAGMA foreign_key_check"), "no row");
            expectConverges();
            ASSERT_FALSE(HasFailure()) << "seed " << seed << " round " << round;
        }
    }
}

} // namespace
