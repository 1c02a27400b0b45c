// Stands before the C library: the process's wall clock is off by as many seconds as the file says
// that KVX_CLOCK_OFF names. The monotonic clock and the dates of files stay right.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

const volatile std::int64_t *shiftedSeconds()
{
    static const std::int64_t none = 0;
    const char *path = std::getenv("KVX_CLOCK_OFF");
    const int file = path ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (file < 0)
        return &none;
    void *memory = mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, file, 0);
    close(file);
    return memory == MAP_FAILED ? &none : static_cast<const std::int64_t *>(memory);
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *at) noexcept
{
    static const volatile std::int64_t *const seconds = shiftedSeconds();
    const long code = syscall(SYS_clock_gettime, clock, at);
    if (code == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
        at->tv_sec += *seconds;
    return static_cast<int>(code);
}

extern "C" time_t time(time_t *result) noexcept
{
    timespec at {};
    clock_gettime(CLOCK_REALTIME, &at);
    if (result)
        *result = at.tv_sec;
    return at.tv_sec;
}

extern "C" int gettimeofday(timeval *result, void *) noexcept
{
    timespec at {};
    const int code = clock_gettime(CLOCK_REALTIME, &at);
    result->tv_sec = at.tv_sec;
    result->tv_usec = at.tv_nsec / 1000;
    return code;
}
