#include "admin/PasswordInput.h"
#include "admin/AdminCommand.h"
#include "base/Text.h"

#include <iostream>
#include <termios.h>
#include <unistd.h>

namespace kvx::server {

namespace {

constexpr std::size_t longestPassword = 1024;

std::string askHidden(const char *question)
{
    termios shown {};
    tcgetattr(STDIN_FILENO, &shown);
    termios hidden = shown;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &hidden);
    std::cerr << question << std::flush;
    std::string line;
    std::getline(std::cin, line);
    tcsetattr(STDIN_FILENO, TCSANOW, &shown);
    std::cerr << '\n';
    return line;
}

} // namespace

std::string readNewPassword()
{
    std::string password;
    if (isatty(STDIN_FILENO)) {
        password = askHidden("Password: ");
        if (password != askHidden("Password again: "))
            throw CommandRefused("the two passwords differ");
    } else {
        std::getline(std::cin, password);
    }
    if (password.empty())
        throw CommandRefused("the password must not be empty");
    if (password.size() > longestPassword)
        throw CommandRefused("the password must not be longer than 1024 bytes");
    if (!isValidUtf8(password))
        throw CommandRefused("the password must be UTF-8 text");
    return password;
}

} // namespace kvx::server
