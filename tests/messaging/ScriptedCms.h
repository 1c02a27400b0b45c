#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace cms {
class ExceptionListener;
class MessageListener;
} // namespace cms

namespace kvx::test {

/// A broker library that notes its calls and does what the test says, in place of the real one in
/// this executable. Calls from any thread.
///
/// Steps are called "initialize", "shutdown", "factory URI", "connect USER PASSWORD",
/// "clientId ID", "exceptionListener", "session MODE", "topic NAME", "producer", "consumer",
/// "messageListener", "start", "close" and "delete factory" … "delete connection".
class ScriptedCms {
public:
    static ScriptedCms &instance();

    /// Forgets the notes and the script, not how often the library is set up.
    void reset();
    /// Called with the step of that first word, instead of nothing; may throw and wait.
    void onStep(const std::string &word, std::function<void()> action);

    std::vector<std::string> steps() const;
    /// The steps since the last call.
    std::vector<std::string> takeSteps();
    int count(const std::string &step) const;

    /// As the test and the library's threads see them; null when taken away.
    cms::MessageListener *messageListener() const;
    cms::ExceptionListener *exceptionListener() const;

    // For the library itself.
    void step(const std::string &text);
    void setMessageListener(cms::MessageListener *listener);
    void setExceptionListener(cms::ExceptionListener *listener);

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_steps;
    std::size_t m_taken = 0;
    std::map<std::string, std::function<void()>> m_actions;
    cms::MessageListener *m_messageListener = nullptr;
    cms::ExceptionListener *m_exceptionListener = nullptr;
};

} // namespace kvx::test
