#include "support/Broker.h"

#include "support/FreePort.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace kvx::test {

namespace {

constexpr int startLimit = 60 * 1000; // milliseconds; a loaded machine takes its time
constexpr int startAttempts = 5; // somebody else may take a port between finding and using it

std::string privateFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "kvx-broker-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("No folder for the broker: " + pattern);
    return pattern;
}

// True when the line arrived, false at the end of the stream or the limit.
bool awaitReady(int handle)
{
    std::string text;
    for (;;) {
        pollfd entry = { handle, POLLIN, 0 };
        const int ready = ::poll(&entry, 1, startLimit);
        if (ready < 0 && errno == EINTR)
            continue;
        char buffer[256];
        const ssize_t count = ready > 0 ? ::read(handle, buffer, sizeof buffer) : 0;
        if (count <= 0)
            return false;
        text.append(buffer, static_cast<std::size_t>(count));
        if (text.find("ready\n") != std::string::npos)
            return true;
    }
}

} // namespace

const Broker::User Broker::guardedServer { "kvx-server", "beside the server" };

Broker::Broker()
    : Broker(Options())
{
}

Broker::Broker(Options options)
    : m_options(std::move(options))
    , m_folder(privateFolder())
{
    try {
        for (const User &user : m_options.users)
            std::ofstream(passwordFile(user)) << user.password << '\n';
        std::ofstream(passwordFile(guardedServer)) << guardedServer.password << '\n';
        for (int attempt = 1; m_process < 0; ++attempt) {
            m_port = freePort();
            m_autoPort = freePort();
            if (!launch() && attempt == startAttempts)
                throw std::runtime_error("The broker does not start: " + logText());
        }
    } catch (...) {
        std::filesystem::remove_all(m_folder);
        throw;
    }
}

Broker::~Broker()
{
    kill();
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::string Broker::uri() const
{
    return "tcp://127.0.0.1:" + std::to_string(m_port);
}

std::string Broker::autoUri() const
{
    return "tcp://127.0.0.1:" + std::to_string(m_autoPort);
}

bool Broker::launch()
{
    std::vector<std::string> words = { KVX_BROKER_SCRIPT, "--port", std::to_string(m_port),
        "--auto-port", std::to_string(m_autoPort), "--data", m_folder, "--max-frame",
        std::to_string(m_options.maxFrame), "--max-connections",
        std::to_string(m_options.maxConnections), "--slow-limit",
        std::to_string(m_options.slowLimit) };
    for (const User &user : m_options.users) {
        words.push_back("--auth");
        words.push_back(user.name + ":" + passwordFile(user));
    }
    if (m_options.guard) {
        words.push_back("--server");
        words.push_back(guardedServer.name + ":" + passwordFile(guardedServer));
    }
    if (!m_options.anonymous)
        words.push_back("--no-anonymous");
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    std::vector<char *> environment;
    for (char **entry = environ; *entry; ++entry)
        environment.push_back(*entry);
    // Short-lived and many at a time: start fast and stay small.
    std::string java = "KVX_BROKER_JAVA_OPTS=-Xmx256m -XX:+UseSerialGC -XX:TieredStopAtLevel=1";
    environment.push_back(java.data());
    environment.push_back(nullptr);

    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("No pipe for the broker");
    const pid_t parent = ::getpid();
    const pid_t process = ::fork();
    if (process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(ends[1], STDOUT_FILENO);
        if (::getppid() == parent)
            ::execve(arguments[0], arguments.data(), environment.data());
        ::_exit(127);
    }
    ::close(ends[1]);
    if (process < 0) {
        ::close(ends[0]);
        throw std::runtime_error("No process for the broker");
    }
    m_process = process;
    const bool ready = awaitReady(ends[0]);
    ::close(ends[0]);
    if (!ready)
        kill();
    return ready;
}

std::string Broker::passwordFile(const User &user) const
{
    return m_folder + "/password-" + user.name;
}

void Broker::awaitEnd()
{
    while (::waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) { }
    m_process = -1;
}

void Broker::kill()
{
    if (m_process < 0)
        return;
    ::kill(m_process, SIGKILL);
    awaitEnd();
}

void Broker::stop()
{
    if (m_process < 0)
        return;
    ::kill(m_process, SIGTERM);
    ::kill(m_process, SIGCONT); // a frozen one could not end
    awaitEnd();
}

void Broker::restart()
{
    stop();
    if (!launch())
        throw std::runtime_error("The broker does not start again: " + logText());
}

void Broker::freeze()
{
    ::kill(m_process, SIGSTOP);
}

void Broker::thaw()
{
    ::kill(m_process, SIGCONT);
}

std::string Broker::logText() const
{
    std::ostringstream text;
    for (const char *name : { "/broker.log", "/java.log" })
        text << std::ifstream(m_folder + name).rdbuf();
    return text.str();
}

} // namespace kvx::test
