#include "Fixture.h"

#include <QFile>
#include <random>

using namespace kvx::test;
using testing::HasSubstr;

namespace {

class Edits : public ProjectFiles { };

std::string randomEdit(std::minstd_rand &random, int firstId)
{
    const auto pick = [&](int limit) { return std::to_string(static_cast<int>(random() % static_cast<std::minstd_rand::result_type>(limit))); };
    const std::string id = std::to_string(firstId + static_cast<int>(random() % 40));
    switch (random() % 9) {
    case 0:
        return "INSERT OR IGNORE INTO items(id, chapter, text, quantity) VALUES (" + id + ", 1, 'text " + pick(99) + "', " + pick(50) + ".5)";
    case 1:
        return "INSERT OR REPLACE INTO items(id, chapter, text) VALUES (" + id + ", 2, 'again " + pick(9) + "')";
    case 2:
        return "UPDATE items SET rate = " + pick(1000) + " WHERE id = " + id;
    case 3:
        return "UPDATE items SET text = text || 'x', note = randomblob(" + pick(60) + ") WHERE id % 5 = " + pick(5);
    case 4:
        return "DELETE FROM items WHERE id = " + id;
    case 5:
        return "INSERT OR REPLACE INTO buildups VALUES (" + id + ", 'part " + pick(4) + "', " + pick(100) + ")";
    case 6:
        return "UPDATE OR IGNORE items SET id = id + 3 WHERE id = " + id;
    case 7:
        return "DELETE FROM buildups";
    default:
        return "SAVEPOINT s; UPDATE items SET rate = 0; ROLLBACK TO s; RELEASE s; UPDATE buildups SET amount = NULL WHERE item = " + id;
    }
}

TEST_F(Edits, TravelToTheOtherProjectAndMakeItEqual)
{
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::minstd_rand random(seed);
        const Database ann = project(("ann" + std::to_string(seed)).c_str());
        const Database ben = download(ann, ("ben" + std::to_string(seed)).c_str());
        ASSERT_TRUE(ben) << error.toStdString();
        for (int session = 0; session < 25; ++session) {
            const Database &writer = random() % 2 ? ann : ben;
            const Database &reader = &writer == &ann ? ben : ann;
            for (auto edits = random() % 6; edits > 0; --edits)
                ASSERT_TRUE(sql(writer, randomEdit(random, 100))) << writer->errorText().toStdString();
            ASSERT_EQ(execute(reader, publish(writer)), 1) << reader->errorText().toStdString();
            ASSERT_EQ(writer->contentDigest(), reader->contentDigest()) << "seed " << seed;
            ASSERT_EQ(reader->logVersion(), session);
        }
    }
}

} // namespace
