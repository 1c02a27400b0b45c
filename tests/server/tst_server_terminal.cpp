#include "support/HttpClient.h"
#include "support/ServerProcess.h"

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using kvx::test::HttpClient;
using kvx::test::ServerProcess;

namespace {

/// A command of kvx-server on a terminal of its own.
class OnTerminal {
public:
    explicit OnTerminal(const std::vector<std::string> &arguments)
    {
        std::vector<const char *> argv { KVX_SERVER_EXECUTABLE };
        for (const std::string &argument : arguments)
            argv.push_back(argument.c_str());
        argv.push_back(nullptr);
        m_child = forkpty(&m_terminal, nullptr, nullptr, nullptr);
        if (m_child == 0) {
            execv(KVX_SERVER_EXECUTABLE, const_cast<char *const *>(argv.data()));
            _exit(127);
        }
    }
    ~OnTerminal() { close(m_terminal); }

    /// Waits for a question, then types.
    bool answer(const std::string &question, const std::string &text)
    {
        return awaitText(question) && write(m_terminal, text.data(), text.size()) > 0;
    }

    int waitForEnd()
    {
        awaitText("no such text"); // until the terminal is closed
        int status = 0;
        waitpid(m_child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    const std::string &shown() const { return m_shown; }

private:
    bool awaitText(const std::string &text)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (m_shown.find(text, m_read) == std::string::npos) {
            pollfd ready { m_terminal, POLLIN, 0 };
            char bytes[512];
            if (std::chrono::steady_clock::now() > end || poll(&ready, 1, 20'000) <= 0)
                return false;
            const ssize_t count = read(m_terminal, bytes, sizeof bytes);
            if (count <= 0)
                return false;
            m_shown.append(bytes, static_cast<std::size_t>(count));
        }
        m_read = m_shown.find(text, m_read) + text.size();
        return true;
    }

    int m_terminal = -1;
    pid_t m_child = -1;
    std::string m_shown;
    std::size_t m_read = 0;
};

std::vector<std::string> addUser(const ServerProcess &server)
{
    return { "user", "add", "typed@example.com", "--name", "Typed", "--data", server.dataFolder() };
}

TEST(ServerTerminal, APasswordIsAskedTwiceAndNotShown)
{
    const ServerProcess server;
    OnTerminal command(addUser(server));
    ASSERT_TRUE(command.answer("Password: ", "hidden words\n")) << command.shown();
    ASSERT_TRUE(command.answer("Password again: ", "hidden words\n")) << command.shown();
    EXPECT_EQ(command.waitForEnd(), 0) << command.shown();
    EXPECT_EQ(command.shown().find("hidden words"), std::string::npos) << command.shown();
    HttpClient client(server.url());
    EXPECT_EQ(client.login("typed@example.com", "hidden words").statusCode(), 1);
}

TEST(ServerTerminal, TwoDifferentPasswordsAreRefused)
{
    const ServerProcess server;
    OnTerminal command(addUser(server));
    ASSERT_TRUE(command.answer("Password: ", "one\n"));
    ASSERT_TRUE(command.answer("Password again: ", "other\n"));
    EXPECT_EQ(command.waitForEnd(), 1);
    EXPECT_NE(command.shown().find("the two passwords differ"), std::string::npos)
        << command.shown();
}

} // namespace
