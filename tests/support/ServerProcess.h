#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kvx::test {

/// What a command that has ended left behind.
struct CommandResult {
    int exitCode = -1; ///< -1 where a signal ended it
    std::string out;
    std::string err;
};

/// The built kvx-server on a data folder of its own and free loopback ports. Nothing survives it:
/// the process ends with this object (or with the test's process, even when that crashes), the
/// folder is removed. Every member throws std::runtime_error with the server's own words when
/// something fails.
///
/// Start it on a thread that lives as long as the server: the system ends it with its thread.
class ServerProcess {
public:
    struct Options {
        std::map<std::string, std::string>
            settings; ///< "session.idle" → "2s"; laid over the harness's
        std::string brokerUrl; ///< empty: a port where nobody listens
        bool start = true;
    };

    /// Returns when the server answers.
    ServerProcess();
    explicit ServerProcess(Options options);
    ~ServerProcess();
    ServerProcess(const ServerProcess &) = delete;
    ServerProcess &operator=(const ServerProcess &) = delete;

    std::string host() const { return "127.0.0.1"; }
    int port() const { return m_port; }
    int adminPort() const { return m_adminPort; }
    std::string url() const; ///< http://127.0.0.1:port
    std::string serviceUrl() const; ///< … + /kvx/service
    std::string adminUrl() const;
    std::string adminEmail() const { return "admin@localhost"; }
    const std::string &adminPassword() const { return m_adminPassword; }

    const std::string &folder() const { return m_folder; } ///< everything of this server lies in it
    std::string dataFolder() const { return m_folder + "/data"; }
    std::string logText() const; ///< what all runs have written to the log
    pid_t pid() const { return m_process; }

    void start(); ///< on the same ports
    int stop(); ///< SIGTERM; the exit code
    void kill(); ///< SIGKILL, as a crash
    void restart(); ///< stop when running, start
    bool isRunning();
    /// Sends a signal and does not wait.
    void signal(int number);
    /// Waits for the end of the process; its exit code, -1 after a signal.
    int waitForEnd();

    /// Other settings from the next start on.
    void set(const std::string &key, const std::string &value);

    /// Runs `kvx-server` with these arguments on this server's data; `input` is its standard input.
    CommandResult command(
        const std::vector<std::string> &arguments, const std::string &input = {}) const;

    /// "user add"; throws when it is refused.
    void addUser(const std::string &email, const std::string &name, const std::string &password,
        const std::vector<std::string> &roles = { "Estimator" }) const;

    /// Runs any arguments, without this server's settings.
    static CommandResult run(const std::vector<std::string> &arguments,
        const std::string &input = {}, const std::map<std::string, std::string> &environment = {});

private:
    std::vector<std::string> settingArguments() const;
    void awaitReady(std::size_t logBegin);

    Options m_options;
    std::string m_folder;
    std::string m_adminPassword;
    int m_port = 0;
    int m_adminPort = 0;
    pid_t m_process = -1;
};

} // namespace kvx::test
