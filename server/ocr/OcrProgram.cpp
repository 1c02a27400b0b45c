#include "ocr/OcrProgram.h"
#include "base/Config.h"
#include "base/Text.h"
#include "ocr/StopSignal.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace kvx::server {

namespace {

using SteadyClock = std::chrono::steady_clock;
using Outcome = OcrProgram::Outcome;

constexpr std::size_t keptOutput = 64 * 1024;
constexpr std::size_t longestReason = 200;
constexpr std::chrono::seconds grace { 5 };
constexpr int exitRefused = 3;
constexpr int exitNoLanguage = 4;

/// What a child writes, up to a limit.
class Pipe {
public:
    Pipe()
    {
        if (pipe2(m_ends, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe");
    }
    ~Pipe()
    {
        closeWriting();
        close(m_ends[0]);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    int writing() const { return m_ends[1]; }
    int reading() const { return m_open ? m_ends[0] : -1; }
    void closeWriting()
    {
        if (m_ends[1] >= 0)
            close(std::exchange(m_ends[1], -1));
    }
    bool isOpen() const { return m_open; }
    void take()
    {
        char buffer[4096];
        const ssize_t count = read(m_ends[0], buffer, sizeof buffer);
        if (count > 0)
            m_text.append(
                buffer, std::min(static_cast<std::size_t>(count), keptOutput - m_text.size()));
        else if (count == 0 || errno != EINTR)
            m_open = false;
    }
    const std::string &text() const { return m_text; }

private:
    int m_ends[2] = { -1, -1 };
    bool m_open = true;
    std::string m_text;
};

/// What posix_spawn is told, released whatever happens.
class Launch {
public:
    Launch()
    {
        posix_spawn_file_actions_init(&m_actions);
        posix_spawnattr_init(&m_attributes);
    }
    ~Launch()
    {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }
    Launch(const Launch &) = delete;
    Launch &operator=(const Launch &) = delete;

    void open(int file, const std::string &path, int flags)
    {
        posix_spawn_file_actions_addopen(&m_actions, file, path.c_str(), flags, 0600);
    }
    void pass(int file, int from) { posix_spawn_file_actions_adddup2(&m_actions, from, file); }

    pid_t start(const std::string &program, const std::vector<std::string> &arguments)
    {
        posix_spawn_file_actions_addclosefrom_np(&m_actions, 4);
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawnattr_setsigdefault(&m_attributes, &all);
        posix_spawnattr_setsigmask(&m_attributes, &none);
        posix_spawnattr_setpgroup(&m_attributes, 0);
        posix_spawnattr_setflags(
            &m_attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
        std::vector<char *> words { const_cast<char *>(program.c_str()) };
        for (const std::string &argument : arguments)
            words.push_back(const_cast<char *>(argument.c_str()));
        words.push_back(nullptr);
        // One thread a page: more make each page slower, and the process may start none.
        const char *environment[] = { "OMP_THREAD_LIMIT=1", "LC_ALL=C.UTF-8", nullptr };
        pid_t child = -1;
        const int error = posix_spawn(&child, program.c_str(), &m_actions, &m_attributes,
            words.data(), const_cast<char **>(environment));
        if (error != 0)
            throw std::system_error(error, std::generic_category(), program);
        return child;
    }

private:
    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
};

/// Reads until the child has closed both pipes, which it does by ending. False: its time is over,
/// or it is to stop.
bool follow(Pipe &errors, Pipe &output, const StopSignal *stop, SteadyClock::time_point until,
    bool &stopped)
{
    while (errors.isOpen() || output.isOpen()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - SteadyClock::now());
        pollfd files[] = { { errors.reading(), POLLIN, 0 }, { output.reading(), POLLIN, 0 },
            { stop ? stop->handle() : -1, POLLIN, 0 } };
        const int ready = left.count() <= 0 ? 0 : poll(files, 3, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        stopped = files[2].revents != 0;
        if (ready <= 0 || stopped)
            return false;
        if (files[0].revents != 0)
            errors.take();
        if (files[1].revents != 0)
            output.take();
    }
    return true;
}

/// The sentence after "refused: ". The process has handled hostile bytes, so its words are
/// checked like anybody's.
std::string reasonIn(const std::string &errors)
{
    const std::string mark = "refused: ";
    const std::size_t begin = errors.rfind(mark);
    if (begin == std::string::npos)
        return {};
    std::string reason = errors.substr(begin + mark.size());
    reason = reason.substr(0, std::min(reason.find('\n'), longestReason));
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    return isValidUtf8(reason) && std::none_of(reason.begin(), reason.end(), isControl) ? reason
                                                                                        : "";
}

Outcome judge(int status, const std::string &errors)
{
    using End = Outcome::End;
    const std::string reason = reasonIn(errors);
    if (WIFEXITED(status)) {
        switch (WEXITSTATUS(status)) {
        case 0:
            return { End::Done, {}, {} };
        case exitRefused:
            return { End::Refused, reason.empty() ? "it is damaged" : reason, {} };
        case exitNoLanguage:
            return { End::NoLanguage, reason, {} };
        default:
            return { End::Died, "recognition broke off", {} };
        }
    }
    const int signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    if (signal == SIGXCPU)
        return { End::TimedOut, "it takes too long", {} };
    if (signal == SIGXFSZ)
        return { End::Died, "its result is too large", {} };
    return { End::Died, "recognition broke off", {} };
}

std::string programPath(const Config &config)
{
    if (!config.ocrProgram.empty())
        return config.ocrProgram;
    std::error_code ignored;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", ignored);
    return (self.parent_path() / "kvx-ocr-worker").string();
}

} // namespace

OcrProgram::OcrProgram(const Config &config)
    : m_config(config)
    , m_program(programPath(config))
{
}

Outcome OcrProgram::run(const Task &task, const StopSignal *stop) const
{
    std::vector<std::string> words = task.arguments;
    words.insert(words.begin(), std::to_string(task.seconds));
    Pipe errors;
    Pipe output;
    Launch launch;
    launch.open(0, task.input.empty() ? "/dev/null" : task.input, O_RDONLY | O_NOFOLLOW);
    if (task.output.empty())
        launch.pass(1, output.writing());
    else
        launch.open(1, task.output, O_WRONLY | O_CREAT | O_EXCL);
    launch.pass(2, errors.writing());
    launch.open(3, task.text.empty() ? "/dev/null" : task.text,
        task.text.empty() ? O_WRONLY : O_WRONLY | O_CREAT | O_EXCL);
    const pid_t child = launch.start(m_program, words);
    errors.closeWriting();
    output.closeWriting();

    bool stopped = false;
    const auto until = SteadyClock::now() + 2 * std::chrono::seconds(task.seconds) + grace;
    const bool ended = follow(errors, output, stop, until, stopped);
    kill(child, SIGKILL); // without effect on one that has ended
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    if (!ended)
        return { stopped ? Outcome::End::Stopped : Outcome::End::TimedOut, "it takes too long",
            {} };
    Outcome outcome = judge(status, errors.text());
    outcome.output = output.text();
    return outcome;
}

std::vector<std::string> OcrProgram::languages() const
{
    if (m_config.ocrWorkers == 0)
        return {};
    const Outcome outcome = run({ { "languages" }, 10, {}, {}, {} });
    std::vector<std::string> languages;
    const auto &offered = m_config.ocrLanguages;
    for (const std::string &language : splitList(outcome.output, '\n')) {
        if (offered.empty() || std::find(offered.begin(), offered.end(), language) != offered.end())
            languages.push_back(language);
    }
    return languages;
}

} // namespace kvx::server
