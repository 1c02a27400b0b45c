#pragma once

#include <string>
#include <vector>

namespace kvx::server {

struct Config;
class StopSignal;

/// Runs the program that looks into documents, kvx-ocr-worker, each time as a new process: clean
/// environment, no file of the server's but the given ones, its own limits (see its sandbox), and
/// killed when its time is over. Blocks; any thread, but the thread must live as long as the
/// process.
class OcrProgram {
public:
    explicit OcrProgram(const Config &config);

    struct Task {
        std::vector<std::string> arguments;
        int seconds = 10; ///< of processor time; in all it may last a little longer than twice that
        std::string input; ///< file for its standard input
        std::string output; ///< new file for its standard output; empty: Outcome::output
        std::string text; ///< new file for what it writes to file 3
    };
    struct Outcome {
        enum class End { Done, Refused, NoLanguage, TimedOut, Stopped, Died };
        End end = End::Died;
        std::string reason; ///< for a user, of one line
        std::string output; ///< the first 64 KiB
    };
    Outcome run(const Task &task, const StopSignal *stop = nullptr) const;

    /// Languages that are installed and offered (`ocr.languages`); none where recognition is
    /// switched off.
    std::vector<std::string> languages() const;

private:
    const Config &m_config;
    const std::string m_program;
};

} // namespace kvx::server
