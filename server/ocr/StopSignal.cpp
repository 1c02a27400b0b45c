#include "ocr/StopSignal.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace kvx::server {

StopSignal::StopSignal()
    : m_handle(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_handle < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

StopSignal::~StopSignal()
{
    close(m_handle);
}

void StopSignal::stop() const
{
    eventfd_write(m_handle, 1);
}

} // namespace kvx::server
