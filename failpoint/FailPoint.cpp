#include "FailPoint.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace kvx::failpoint {

namespace {

struct Action {
    enum class Kind { None, Kill, Error, Delay } kind = Kind::None;
    int milliseconds = 0;
    int passing = 1; ///< 0: every one
    std::string text; ///< as it was written
};

int numberOf(const std::string &text)
{
    std::size_t end = 0;
    const int number = text.empty() ? -1 : std::stoi(text, &end);
    if (number < 0 || end != text.size())
        throw std::invalid_argument("fail points: \"" + text + "\" is no number");
    return number;
}

Action actionOf(std::string text)
{
    Action action;
    const std::size_t at = text.find('@');
    if (at != std::string::npos) {
        const std::string passing = text.substr(at + 1);
        action.passing = passing == "*" ? 0 : numberOf(passing);
        text.resize(at);
    }
    action.text = text;
    if (text == "kill")
        action.kind = Action::Kind::Kill;
    else if (text == "error")
        action.kind = Action::Kind::Error;
    else if (text.rfind("delay:", 0) == 0)
        action.kind = Action::Kind::Delay;
    else
        throw std::invalid_argument("fail points: \"" + text + "\" is no action");
    if (action.kind == Action::Kind::Delay)
        action.milliseconds = numberOf(text.substr(6));
    return action;
}

std::map<std::string, Action> actionsOf(const std::string &text)
{
    std::map<std::string, Action> actions;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, ';');) {
        const std::size_t sign = part.find('=');
        if (sign == std::string::npos)
            throw std::invalid_argument("fail points: \"" + part + "\" names no action");
        actions[part.substr(0, sign)] = actionOf(part.substr(sign + 1));
    }
    return actions;
}

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

class Points {
public:
    static Points &instance()
    {
        static auto *const points = new Points; // passed until the very end of the process
        return *points;
    }

    Action pass(const std::string &name)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_file.empty())
            readFile();
        if (!m_counting)
            return {};
        const int passing = ++m_passings[name];
        const auto armed = m_actions.find(name);
        Action action;
        if (armed != m_actions.end()
            && (armed->second.passing == 0 || armed->second.passing == passing))
            action = armed->second;
        note(action.text.empty() ? name : name + '=' + action.text);
        return action;
    }

    void arm(const std::string &text)
    {
        auto actions = actionsOf(text);
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_counting = true;
        m_actions = std::move(actions);
        m_passings.clear();
    }

    int passings(const std::string &name)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_passings[name];
    }

private:
    Points()
        : m_passed(environment("KVX_FAIL_POINTS_PASSED"))
    {
        const std::string text = environment("KVX_FAIL_POINTS");
        m_counting = !text.empty() || !m_passed.empty();
        if (text.rfind('@', 0) == 0)
            m_file = text.substr(1);
        else
            m_actions = actionsOf(text);
    }

    void readFile()
    {
        std::ifstream stream(m_file);
        std::string text;
        std::getline(stream, text);
        if (text == m_text)
            return;
        m_actions = actionsOf(text);
        m_text = text;
        m_passings.clear();
    }

    /// In one piece and before the point acts.
    void note(const std::string &line) const
    {
        if (m_passed.empty())
            return;
        const int file = ::open(m_passed.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        const std::string bytes = line + '\n';
        if (file < 0 || ::write(file, bytes.data(), bytes.size()) < 0)
            std::abort(); // a passing that is not noted would be taken for one that never was
        ::close(file);
    }

    std::mutex m_mutex;
    const std::string m_passed;
    std::string m_file;
    std::string m_text; ///< what the file said last
    bool m_counting = false;
    std::map<std::string, Action> m_actions;
    std::map<std::string, int> m_passings;
};

} // namespace

bool pass(const std::string &name)
{
    const Action action = Points::instance().pass(name);
    if (action.kind == Action::Kind::Kill)
        ::kill(::getpid(), SIGKILL);
    std::this_thread::sleep_for(std::chrono::milliseconds(action.milliseconds));
    return action.kind == Action::Kind::Error;
}

void arm(const std::string &text)
{
    Points::instance().arm(text);
}

int passings(const std::string &name)
{
    return Points::instance().passings(name);
}

} // namespace kvx::failpoint
