#include "DecodeStream.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

std::vector<std::string> corpus()
{
    std::vector<std::string> entries;
    for (const auto &entry : std::filesystem::directory_iterator(KVX_OPENWIRE_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        entries.emplace_back(
            std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return entries;
}

} // namespace

TEST(Corpus, everyEntryIsReadWithoutHarm)
{
    const std::vector<std::string> entries = corpus();
    ASSERT_GE(entries.size(), 5u);
    for (const std::string &entry : entries)
        kvx::test::decodeStream(entry);
}

TEST(Corpus, everyEntryCutOrWithAChangedByteIsReadWithoutHarm)
{
    for (std::string entry : corpus()) {
        for (std::size_t at = 0; at < entry.size() && at < 2000; ++at) {
            kvx::test::decodeStream(std::string_view(entry).substr(0, at));
            const char original = entry[at];
            for (const char other : { '\0', '\x7f', '\xff', static_cast<char>(original ^ 1) }) {
                entry[at] = other;
                kvx::test::decodeStream(entry);
            }
            entry[at] = original;
        }
    }
}
