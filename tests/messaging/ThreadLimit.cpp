// Stands before the C library, since no limit of the system binds root.
#include "ThreadLimit.h"

#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>

namespace {

constexpr int unlimited = -1;

thread_local int threadsAllowed = unlimited;
thread_local int threadsRefused = 0;

} // namespace

extern "C" int pthread_create(
    pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument)
{
    if (threadsAllowed == 0) {
        ++threadsRefused;
        return EAGAIN;
    }
    if (threadsAllowed > 0)
        --threadsAllowed;
    static auto *const real
        = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return real(thread, attributes, body, argument);
}

namespace kvx::test {

ThreadLimit::ThreadLimit(int allowed)
{
    threadsAllowed = allowed;
    threadsRefused = 0;
}

ThreadLimit::~ThreadLimit()
{
    threadsAllowed = unlimited;
}

int ThreadLimit::refused()
{
    return threadsRefused;
}

} // namespace kvx::test
