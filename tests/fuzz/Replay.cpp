#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// What the fuzzer's library brings for a target that changes its inputs itself.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *, std::size_t, std::size_t)
{
    std::abort();
}

namespace {

/// Of one input, itself among them.
constexpr std::size_t mostCuts = 64;

/// Targets keep what they set up to the end of the process, files included.
class OwnTemporaryFolder : public testing::Environment {
public:
    void SetUp() override
    {
        std::string pattern = std::filesystem::temp_directory_path() / "kvx-corpus-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_path = pattern;
        setenv("TMPDIR", m_path.c_str(), 1);
    }
    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

private:
    std::filesystem::path m_path;
};

const auto *const ownTemporaryFolder = testing::AddGlobalTestEnvironment(new OwnTemporaryFolder);

} // namespace

// A target ends the process when an input shows a fault, so that arriving at the end is the proof.
TEST(Corpus, IsHandledWholeAndCut)
{
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(KVX_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<std::uint8_t> bytes { std::istreambuf_iterator<char>(file), {} };
        SCOPED_TRACE(entry.path().filename().string());
        const std::size_t step = std::max<std::size_t>(1, (bytes.size() + mostCuts - 1) / mostCuts);
        for (std::size_t cut = 0; cut < bytes.size(); cut += step) {
            // In memory of exactly that size, where reading past the end is noticed.
            const std::vector<std::uint8_t> part(
                bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(cut));
            EXPECT_EQ(LLVMFuzzerTestOneInput(part.data(), part.size()), 0);
        }
        EXPECT_EQ(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()), 0);
        ++count;
    }
    EXPECT_GT(count, 2);
}
