#include "support/FreePort.h"

#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace kvx::test {

namespace {

sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    return address;
}

} // namespace

int freePort()
{
    const int handle = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    const bool bound = ::bind(handle, reinterpret_cast<sockaddr *>(&address), size) == 0
        && ::getsockname(handle, reinterpret_cast<sockaddr *>(&address), &size) == 0;
    ::close(handle);
    if (!bound)
        throw std::runtime_error("No free port on this machine");
    return ntohs(address.sin_port);
}

bool isListening(int port)
{
    const int handle = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool connected
        = ::connect(handle, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    ::close(handle);
    return connected;
}

} // namespace kvx::test
