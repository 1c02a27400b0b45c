#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace kvx::test {

/// A process that is spoken to line by line. Ended with the object, or with the test's process.
class ChildProcess {
public:
    explicit ChildProcess(std::vector<std::string> words);
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    void say(const std::string &line);
    /// The next line it wrote, without its end; waits up to 30 s, then throws std::runtime_error.
    std::string line();
    void kill();
    void freeze(); ///< its sockets stay open, nothing moves

private:
    pid_t m_process = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_read;
};

} // namespace kvx::test
