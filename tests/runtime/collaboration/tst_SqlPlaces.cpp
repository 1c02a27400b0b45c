#include <QRegularExpression>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// Who may speak SQL. A statement outside the store escapes its transactions and its checks.

namespace fs = std::filesystem;

namespace {

/// Words of SQL outside comments, and its libraries' headers, each with its place.
std::vector<std::string> sqlUnder(const fs::path &folder)
{
    static const QRegularExpression sql(QStringLiteral(
        "\\b(SELECT|INSERT|UPDATE|DELETE|PRAGMA|BEGIN|COMMIT|ROLLBACK|SAVEPOINT|VACUUM|ATTACH|"
        "(CREATE|DROP|ALTER) [A-Z]+|FROM|JOIN|WHERE|VALUES|(ORDER|GROUP) BY)\\b"
        "|# *include *[<\"](soci/|sqlite3)"));
    std::vector<std::string> places;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        const std::string extension = entry.path().extension().string();
        if (extension != ".h" && extension != ".cpp")
            continue;
        std::ifstream stream(entry.path());
        std::string line;
        for (int number = 1; std::getline(stream, line); ++number) {
            const std::string code = line.substr(0, line.find("//"));
            if (sql.match(QString::fromStdString(code)).hasMatch())
                places.push_back(
                    entry.path().string() + ":" + std::to_string(number) + ": " + code);
        }
    }
    return places;
}

const fs::path root(KVX_SOURCE_DIR);

} // namespace

TEST(SqlPlaces, TheServerSpeaksSqlInItsStoreOnly)
{
    int inStore = 0;
    for (const std::string &place : sqlUnder(root / "server")) {
        const bool allowed = place.rfind((root / "server" / "store").string() + "/", 0) == 0;
        EXPECT_TRUE(allowed) << place;
        inStore += allowed ? 1 : 0;
    }
    EXPECT_GT(inStore, 200) << "the search finds what it is to find";
}

TEST(SqlPlaces, ThePluginSpeaksNone)
{
    for (const std::string &place : sqlUnder(root / "plugin"))
        ADD_FAILURE() << place;
}
