#include "support/ServerProcess.h"

#include <chrono>
#include <cstdio>
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
#include <csignal>
#include <thread>
#include <unistd.h>

namespace kvx::test {

namespace {

using ServerClock = std::chrono::steady_clock;
constexpr std::chrono::seconds startLimit { 30 };
constexpr std::chrono::seconds stopLimit { 40 };

std::string fileText(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/// listen=127.0.0.1:8090 or "listen":"127.0.0.1:8090" → 8090.
int portAfter(const std::string &line, const std::string &name)
{
    std::size_t at = line.find(' ' + name + "=127.0.0.1:");
    if (at == std::string::npos)
        at = line.find('"' + name + "\":\"127.0.0.1:");
    return at == std::string::npos ? 0 : std::atoi(line.c_str() + line.find("127.0.0.1:", at) + 10);
}

/// Starts the server's executable; `descriptors` become 0, 1 and 2.
pid_t spawn(const std::vector<std::string> &arguments, const int descriptors[3],
    const std::map<std::string, std::string> &environment)
{
    std::vector<const char *> argv { KVX_SERVER_EXECUTABLE };
    for (const std::string &argument : arguments)
        argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    if (child > 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(126);
    for (int i = 0; i < 3; ++i)
        dup2(descriptors[i], i);
    for (int i = 3; i < 1024; ++i)
        close(i);
    for (const auto &[name, value] : environment)
        setenv(name.c_str(), value.c_str(), 1);
    execv(KVX_SERVER_EXECUTABLE, const_cast<char *const *>(argv.data()));
    _exit(127);
}

int exitCodeOf(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

ServerProcess::ServerProcess()
    : ServerProcess(Options {})
{
}

ServerProcess::ServerProcess(Options options)
    : m_options(std::move(options))
{
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : P_tmpdir) + "/kvx-server-XXXXXX";
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error(pattern + ": " + std::strerror(errno));
    m_folder = pattern;
    if (m_options.start)
        start();
}

ServerProcess::~ServerProcess()
{
    if (m_process > 0) {
        ::kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    // A report of a sanitizer in the server is a failure of the test, whatever else it found.
    const std::string log = logText();
    if (log.find("Sanitizer:") != std::string::npos
        || log.find("runtime error:") != std::string::npos) {
        std::fputs(log.c_str(), stderr);
        std::abort();
    }
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::string ServerProcess::url() const
{
    return "http://127.0.0.1:" + std::to_string(m_port);
}

std::string ServerProcess::serviceUrl() const
{
    return url() + "/kvx/service";
}

std::string ServerProcess::adminUrl() const
{
    return "http://127.0.0.1:" + std::to_string(m_adminPort);
}

std::string ServerProcess::logText() const
{
    return fileText(m_folder + "/log");
}

std::vector<std::string> ServerProcess::settingArguments() const
{
    std::map<std::string, std::string> settings { { "data", dataFolder() },
        { "disk.reserve", "1MiB" },
        { "broker.url", m_options.brokerUrl.empty() ? "tcp://127.0.0.1:1" : m_options.brokerUrl },
        { "listen", "127.0.0.1:" + std::to_string(m_port) },
        { "admin.listen", "127.0.0.1:" + std::to_string(m_adminPort) },
        { "limits.perAddress", "2000" } };
    for (const auto &[key, value] : m_options.settings)
        settings[key] = value;
    std::vector<std::string> arguments;
    for (const auto &[key, value] : settings) {
        arguments.push_back("--" + key);
        arguments.push_back(value);
    }
    return arguments;
}

void ServerProcess::start()
{
    const std::string log = m_folder + "/log";
    const std::size_t logBegin = logText().size();
    const std::string passwordFile = m_folder + "/password";
    std::vector<std::string> arguments { "serve" };
    if (m_adminPassword.empty())
        arguments.insert(arguments.end(), { "--admin-password-file", passwordFile });
    for (std::string &setting : settingArguments())
        arguments.push_back(std::move(setting));
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const int descriptors[3] { nothing, nothing, out };
    m_process = spawn(arguments, descriptors, {});
    close(nothing);
    close(out);
    awaitReady(logBegin);
    if (m_adminPassword.empty()) {
        m_adminPassword = fileText(passwordFile);
        m_adminPassword.resize(m_adminPassword.find_last_not_of('\n') + 1);
    }
}

void ServerProcess::awaitReady(std::size_t logBegin)
{
    const auto end = ServerClock::now() + startLimit;
    while (ServerClock::now() < end) {
        const std::string text = logText().substr(logBegin);
        std::size_t ready = text.find(" info ready ");
        if (ready == std::string::npos)
            ready = text.find("\"event\":\"ready\"");
        const std::size_t lineEnd = ready == std::string::npos ? ready : text.find('\n', ready);
        if (lineEnd != std::string::npos) {
            const std::string line = text.substr(ready, lineEnd - ready);
            m_port = portAfter(line, "listen");
            m_adminPort = portAfter(line, "admin");
            return;
        }
        if (!isRunning())
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    throw std::runtime_error("kvx-server does not get ready: " + logText().substr(logBegin));
}

bool ServerProcess::isRunning()
{
    if (m_process <= 0)
        return false;
    siginfo_t info {};
    return waitid(P_PID, static_cast<id_t>(m_process), &info, WEXITED | WNOHANG | WNOWAIT) == 0
        && info.si_pid == 0;
}

void ServerProcess::signal(int number)
{
    ::kill(m_process, number);
}

int ServerProcess::waitForEnd()
{
    const auto end = ServerClock::now() + stopLimit;
    while (isRunning()) {
        if (ServerClock::now() > end)
            throw std::runtime_error("kvx-server does not end: " + logText());
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    int status = 0;
    waitpid(m_process, &status, 0);
    m_process = -1;
    return exitCodeOf(status);
}

int ServerProcess::stop()
{
    signal(SIGTERM);
    return waitForEnd();
}

void ServerProcess::kill()
{
    signal(SIGKILL);
    waitForEnd();
}

void ServerProcess::restart()
{
    if (isRunning())
        stop();
    start();
}

void ServerProcess::set(const std::string &key, const std::string &value)
{
    m_options.settings[key] = value;
}

CommandResult ServerProcess::command(
    const std::vector<std::string> &arguments, const std::string &input) const
{
    std::vector<std::string> all = arguments;
    for (std::string &setting : settingArguments())
        all.push_back(std::move(setting));
    return run(all, input);
}

void ServerProcess::addUser(const std::string &email, const std::string &name,
    const std::string &password, const std::vector<std::string> &roles) const
{
    std::vector<std::string> arguments { "user", "add", email, "--name", name };
    for (const std::string &role : roles)
        arguments.insert(arguments.end(), { "--role", role });
    const CommandResult result = command(arguments, password + '\n');
    if (result.exitCode != 0)
        throw std::runtime_error("user add: " + result.out + result.err);
}

CommandResult ServerProcess::run(const std::vector<std::string> &arguments,
    const std::string &input, const std::map<std::string, std::string> &environment)
{
    int in[2];
    int out[2];
    int err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    const int descriptors[3] { in[0], out[1], err[1] };
    const pid_t child = spawn(arguments, descriptors, environment);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    if (write(in[1], input.data(), input.size()) < 0 && errno != EPIPE)
        throw std::runtime_error(std::string("write: ") + std::strerror(errno));
    close(in[1]);

    CommandResult result;
    pollfd ends[2] { { out[0], POLLIN, 0 }, { err[0], POLLIN, 0 } };
    std::string *const texts[2] { &result.out, &result.err };
    const auto end = ServerClock::now() + stopLimit;
    while ((ends[0].fd >= 0 || ends[1].fd >= 0) && ServerClock::now() < end) {
        poll(ends, 2, 1000);
        for (int i = 0; i < 2; ++i) {
            char bytes[4096];
            if (ends[i].fd < 0 || ends[i].revents == 0)
                continue;
            const ssize_t count = read(ends[i].fd, bytes, sizeof bytes);
            if (count <= 0) {
                close(ends[i].fd);
                ends[i].fd = -1;
            } else {
                texts[i]->append(bytes, static_cast<std::size_t>(count));
            }
        }
    }
    if (ServerClock::now() >= end)
        ::kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    result.exitCode = exitCodeOf(status);
    return result;
}

} // namespace kvx::test
