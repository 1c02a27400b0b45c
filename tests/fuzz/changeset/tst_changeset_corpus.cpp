#include <cstddef>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size);

namespace {

TEST(ChangesetCorpus, IsHandledByValidatorAndDatabase)
{
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(KVX_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<unsigned char> bytes { std::istreambuf_iterator<char>(file), {} };
        SCOPED_TRACE(entry.path().filename().string());
        for (std::size_t size = 0; size <= bytes.size(); ++size)
            EXPECT_EQ(LLVMFuzzerTestOneInput(bytes.data(), size), 0);
        ++count;
    }
    EXPECT_GT(count, 5);
}

} // namespace
