#include <FailPoint.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

// Defined where the points are not built in.
extern bool stepThatNeverFails();

using kvx::failpoint::arm;
using kvx::failpoint::pass;
using kvx::failpoint::passings;

namespace {

struct FailPoint : testing::Test {
    void TearDown() override { arm(""); }
};

/// What a process of its own makes of the environment: its wait status.
int statusOf(const std::string &points, const std::string &passed, int passes)
{
    const pid_t child = fork();
    if (child == 0) {
        setenv("KVX_FAIL_POINTS", points.c_str(), 1);
        setenv("KVX_FAIL_POINTS_PASSED", passed.c_str(), 1);
        const std::string count = std::to_string(passes);
        execl("/proc/self/exe", "tst_failpoint", "--pass", count.c_str(), nullptr);
        _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

std::string contentOf(const std::string &path)
{
    std::ifstream file(path);
    return { std::istreambuf_iterator<char>(file), {} };
}

} // namespace

TEST_F(FailPoint, ThatIsNotArmedDoesNothing)
{
    arm("");
    EXPECT_FALSE(KVX_FAIL_POINT("a/b"));
    EXPECT_EQ(passings("a/b"), 1);
    EXPECT_EQ(passings("other"), 0);
}

TEST_F(FailPoint, FailsOnItsFirstPassing)
{
    arm("a/b=error");
    EXPECT_FALSE(pass("other"));
    EXPECT_TRUE(pass("a/b"));
    EXPECT_FALSE(pass("a/b"));
    EXPECT_EQ(passings("a/b"), 2);
}

TEST_F(FailPoint, FailsOnTheChosenPassingOnly)
{
    arm("a/b=error@3;c: d=error");
    EXPECT_FALSE(pass("a/b"));
    EXPECT_FALSE(pass("a/b"));
    EXPECT_TRUE(pass("a/b"));
    EXPECT_FALSE(pass("a/b"));
    EXPECT_TRUE(pass("c: d"));
}

TEST_F(FailPoint, FailsAlwaysWhereAsked)
{
    arm("a/b=error@*");
    EXPECT_TRUE(pass("a/b"));
    EXPECT_TRUE(pass("a/b"));
}

TEST_F(FailPoint, CountsAnewWhenArmedAnew)
{
    arm("a/b=error");
    EXPECT_TRUE(pass("a/b"));
    arm("a/b=error");
    EXPECT_EQ(passings("a/b"), 0);
    EXPECT_TRUE(pass("a/b"));
}

TEST_F(FailPoint, WaitsAndGoesOn)
{
    arm("a/b=delay:50");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(pass("a/b"));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
}

TEST_F(FailPoint, RefusesATextThatMeansNothing)
{
    for (const char *text :
        { "a/b", "a/b=", "a/b=explode", "a/b=delay:", "a/b=delay:1s", "a/b=error@", "a/b=error@x" })
        EXPECT_THROW(arm(text), std::invalid_argument) << text;
}

TEST_F(FailPoint, OfAProcessFollowsTheEnvironment)
{
    const std::string folder = testing::TempDir();
    const std::string passed = folder + "fail-points-passed";
    unlink(passed.c_str());
    const int status = statusOf("a/b=kill@2", passed, 5);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_EQ(contentOf(passed), "a/b\na/b=kill\n");
    unlink(passed.c_str());

    const std::string armed = folder + "fail-points-armed";
    std::ofstream(armed) << "a/b=error";
    EXPECT_EQ(WEXITSTATUS(statusOf('@' + armed, passed, 3)), 1);
    EXPECT_EQ(contentOf(passed), "a/b=error\na/b\na/b\n");
    unlink(passed.c_str());
    unlink(armed.c_str());
}

TEST(NoFailPoint, IsLeftWhereTheyAreNotBuiltIn)
{
    EXPECT_FALSE(stepThatNeverFails());
    // The symbols and texts of that object are judged by the next ctest entry.
}

/// With "--pass n": passes the point so often; the exit code is how often it failed.
int main(int argc, char **argv)
{
    if (argc == 3 && std::string(argv[1]) == "--pass") {
        int failed = 0;
        for (int i = 0; i < std::stoi(argv[2]); ++i)
            failed += KVX_FAIL_POINT("a/b") ? 1 : 0;
        return failed;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
