#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace kvx::server {

class AdminSession;

/// The command is understood and not carried out; the text says why. Exit code 1.
class CommandRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The command cannot be understood; the text names what does not fit. Exit code 2.
class CommandUsage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One word ("email") or option ("--name") of a command.
struct CommandOption {
    enum Takes { Text, Texts, Number, Numbers, Flag };
    const char *name;
    const char *meaning;
    Takes takes = Text;
    /// A word has to be there unless it says otherwise; an option has not.
    enum Need { AsUsual, Required, Optional } need = AsUsual;

    bool isWord() const { return name[0] != '-'; }
    bool isRequired() const { return need == AsUsual ? isWord() : need == Required; }
};

/// What was given for a command's words and options, by their names as the command declares them.
class CommandArguments {
public:
    bool has(const std::string &name) const { return m_values.count(name) > 0; }
    /// Empty where it was not given.
    std::string text(const std::string &name) const;
    std::vector<std::string> texts(const std::string &name) const;
    std::int64_t number(const std::string &name) const;
    std::vector<std::int64_t> numbers(const std::string &name) const;
    /// Midnight, in the time zone of the process, of a day "yyyy-mm-dd"; throws CommandUsage.
    std::int64_t day(const std::string &name) const;

    void set(const std::string &name, std::vector<std::string> values)
    {
        m_values[name] = std::move(values);
    }

private:
    std::map<std::string, std::vector<std::string>> m_values;
};

/// Midnight of the day after, which may be an hour more or less away.
std::int64_t dayAfter(std::int64_t midnight);

/// One command that works on the database, with all that the command line and its help need.
struct AdminCommand {
    const char *noun; ///< "user"
    const char *verb; ///< "add"
    const char *meaning;
    std::vector<CommandOption> options;
    /// The exit code. Throws CommandRefused, CommandUsage, DbError.
    int (*run)(AdminSession &, const CommandArguments &);
};
using AdminCommandTable = std::vector<AdminCommand>;

/// What all commands of a noun have to do with.
struct AdminNoun {
    const char *name;
    const char *meaning;
    const AdminCommandTable *commands;
};
/// All of them; the one place where the tables of commands are listed.
const std::vector<AdminNoun> &allAdminNouns();

} // namespace kvx::server
