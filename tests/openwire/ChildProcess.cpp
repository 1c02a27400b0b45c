#include "ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kvx::test {

ChildProcess::ChildProcess(std::vector<std::string> words)
{
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
        throw std::runtime_error("No pipe");
    m_process = ::fork();
    if (m_process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    m_input = in[1];
    m_output = out[0];
}

ChildProcess::~ChildProcess()
{
    kill();
    ::close(m_input);
    ::close(m_output);
}

void ChildProcess::say(const std::string &line)
{
    const std::string text = line + '\n';
    if (::write(m_input, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("The process does not listen");
}

std::string ChildProcess::line()
{
    for (;;) {
        const std::size_t end = m_read.find('\n');
        if (end != std::string::npos) {
            const std::string result = m_read.substr(0, end);
            m_read.erase(0, end + 1);
            return result;
        }
        pollfd entry = { m_output, POLLIN, 0 };
        const int ready = ::poll(&entry, 1, 30000);
        if (ready < 0 && errno == EINTR)
            continue;
        char buffer[4096];
        const ssize_t count = ready > 0 ? ::read(m_output, buffer, sizeof buffer) : 0;
        if (count <= 0)
            throw std::runtime_error("The process says nothing");
        m_read.append(buffer, static_cast<std::size_t>(count));
    }
}

void ChildProcess::kill()
{
    if (m_process < 0)
        return;
    ::kill(m_process, SIGKILL);
    while (::waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) { }
    m_process = -1;
}

void ChildProcess::freeze()
{
    ::kill(m_process, SIGSTOP);
}

} // namespace kvx::test
