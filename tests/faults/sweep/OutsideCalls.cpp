// Stands before the C library and lets one outside call of the process fail. See CallCounter.h.
#include "CallCounter.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <initializer_list>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

using kvx::test::CallCounter;

/// A server that lets nobody in any more is no news: that failure never lasts.
enum Kind { FileRead, FileWrite, Network, Accept };

/// Given instead of an error number: the call is carried out in part, or finds the end.
constexpr int inPart = -1;

/// What ferror() looks at.
constexpr int streamFailed = 0x20;

CallCounter ownCounter = {};

CallCounter *mapped()
{
    const char *path = std::getenv("KVX_CALL_COUNTER");
    if (!path)
        return &ownCounter;
    const int file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC));
    void *memory = mmap(nullptr, sizeof(CallCounter), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    syscall(SYS_close, file);
    return memory == MAP_FAILED ? &ownCounter : static_cast<CallCounter *>(memory);
}

CallCounter &counter()
{
    static CallCounter *const instance = mapped();
    return *instance;
}

template <typename Function> Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/// The error for this call; 0 when it is to be carried out.
int strike(Kind kind, const char *name, const char *file, std::initializer_list<int> errors)
{
    CallCounter &shared = counter();
    if (shared.armed == 0)
        return 0;
    if (shared.scope == CallCounter::MainThread && syscall(SYS_gettid) != getpid())
        return 0;
    const long number = ++shared.calls;
    const bool first = number == shared.failAt;
    if (!first
        && (shared.struck == 0 || shared.span != CallCounter::FromThereOn || kind == Accept
            || shared.kind != kind))
        return 0;
    const int error = *(errors.begin() + shared.flavour % static_cast<int>(errors.size()));
    if (!first)
        return error == inPart ? *errors.begin() : error;
    shared.kind = kind;
    std::snprintf(shared.what, sizeof shared.what, "%s %s: %s", name, file ? file : "",
        error == inPart ? "in part" : std::strerror(error));
    shared.struck = 1;
    return error;
}

bool strikes(Kind kind, const char *name, const char *file, std::initializer_list<int> errors)
{
    const int error = strike(kind, name, file, errors);
    if (error == 0)
        return false;
    errno = error;
    return true;
}

bool ofTheSystem(const char *path)
{
    for (const char *folder : { "/proc/", "/sys/", "/etc/", "/usr/", "/dev/" }) {
        if (std::strncmp(path, folder, std::strlen(folder)) == 0)
            return std::strncmp(path, "/dev/shm/", 9) != 0;
    }
    return false;
}

bool openStrikes(const char *name, const char *path, bool writes)
{
    if (ofTheSystem(path))
        return false;
    return writes ? strikes(FileWrite, name, path, { ENOSPC, EIO, EMFILE })
                  : strikes(FileRead, name, path, { EMFILE, EIO });
}

bool openStrikes(const char *name, const char *path, int flags)
{
    return openStrikes(name, path, (flags & O_ACCMODE) != O_RDONLY);
}

enum class Descriptor { Other, File, Socket };

Descriptor typeOf(int fd)
{
    struct stat status = {};
    if (counter().armed == 0 || fd <= 2 || fstat(fd, &status) != 0)
        return Descriptor::Other;
    if (S_ISSOCK(status.st_mode))
        return Descriptor::Socket;
    return S_ISREG(status.st_mode) ? Descriptor::File : Descriptor::Other;
}

/// The error for a transfer on a descriptor; inPart where it is to be shortened.
int readStrikes(const char *name, int fd)
{
    switch (typeOf(fd)) {
    case Descriptor::File:
        return strike(FileRead, name, "file", { EIO });
    case Descriptor::Socket:
        return strike(Network, name, "socket", { ECONNRESET, ETIMEDOUT, inPart });
    case Descriptor::Other:
        break;
    }
    return 0;
}

int writeStrikes(const char *name, int fd)
{
    switch (typeOf(fd)) {
    case Descriptor::File:
        return strike(FileWrite, name, "file", { ENOSPC, EIO, inPart });
    case Descriptor::Socket:
        return strike(Network, name, "socket", { ECONNRESET, EPIPE, ETIMEDOUT });
    case Descriptor::Other:
        break;
    }
    return 0;
}

bool nameStrikes(const char *name, const char *path)
{
    return strikes(FileWrite, name, path, { EIO, ENOSPC, EACCES });
}

mode_t modeOf(int flags, va_list arguments)
{
    const bool given = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return given ? va_arg(arguments, mode_t) : 0;
}

ssize_t failed(int error)
{
    errno = error;
    return -1;
}

template <typename Buffer, typename Function>
ssize_t transfer(int error, Function carryOut, Buffer buffer, size_t size, bool reads)
{
    if (error == inPart)
        return reads ? 0 : carryOut(buffer, size > 1 ? size / 2 : size);
    return error != 0 ? failed(error) : carryOut(buffer, size);
}

/// Without a descriptor the connection waits; one that its peer has given up is gone.
template <typename Function> int accepted(int fd, const char *name, Function carryOut)
{
    const int error
        = typeOf(fd) == Descriptor::Socket ? strike(Accept, name, "", { EMFILE, inPart }) : 0;
    if (error == 0)
        return carryOut();
    if (error == inPart) {
        const int peer = carryOut();
        if (peer < 0)
            return peer;
        syscall(SYS_close, peer);
    }
    errno = error == inPart ? ECONNABORTED : error;
    return -1;
}

bool isWritten(FILE *stream)
{
    return (fcntl(fileno(stream), F_GETFL) & O_ACCMODE) != O_RDONLY;
}

} // namespace

namespace kvx::test {

CallCounter &ownCallCounter()
{
    return counter();
}

} // namespace kvx::test

#define KVX_OPEN(name)                                                                             \
    int name(const char *path, int flags, ...)                                                     \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = modeOf(flags, arguments);                                              \
        va_end(arguments);                                                                         \
        static const auto carryOut = next<int(const char *, int, mode_t)>(#name);                  \
        return openStrikes(#name, path, flags) ? -1 : carryOut(path, flags, mode);                 \
    }
#define KVX_OPENAT(name)                                                                           \
    int name(int folder, const char *path, int flags, ...)                                         \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = modeOf(flags, arguments);                                              \
        va_end(arguments);                                                                         \
        static const auto carryOut = next<int(int, const char *, int, mode_t)>(#name);             \
        return openStrikes(#name, path, flags) ? -1 : carryOut(folder, path, flags, mode);         \
    }
#define KVX_CREAT(name)                                                                            \
    int name(const char *path, mode_t mode)                                                        \
    {                                                                                              \
        static const auto carryOut = next<int(const char *, mode_t)>(#name);                       \
        return openStrikes(#name, path, true) ? -1 : carryOut(path, mode);                         \
    }
#define KVX_FOPEN(name)                                                                            \
    FILE *name(const char *path, const char *mode)                                                 \
    {                                                                                              \
        static const auto carryOut = next<FILE *(const char *, const char *)>(#name);              \
        return openStrikes(#name, path, std::strpbrk(mode, "wa+") != nullptr)                      \
            ? nullptr                                                                              \
            : carryOut(path, mode);                                                                \
    }
#define KVX_MKSTEMP(name)                                                                          \
    int name(char *path)                                                                           \
    {                                                                                              \
        static const auto carryOut = next<int(char *)>(#name);                                     \
        return openStrikes(#name, path, true) ? -1 : carryOut(path);                               \
    }
#define KVX_READ(name, offset_type)                                                                \
    ssize_t name(int fd, void *buffer, size_t size, offset_type offset)                            \
    {                                                                                              \
        static const auto carryOut = next<ssize_t(int, void *, size_t, offset_type)>(#name);       \
        const int error = readStrikes(#name, fd);                                                  \
        return error != 0 ? failed(error) : carryOut(fd, buffer, size, offset);                    \
    }
#define KVX_WRITE(name, offset_type)                                                               \
    ssize_t name(int fd, const void *buffer, size_t size, offset_type offset)                      \
    {                                                                                              \
        static const auto carryOut = next<ssize_t(int, const void *, size_t, offset_type)>(#name); \
        return transfer(                                                                           \
            writeStrikes(#name, fd),                                                               \
            [&](const void *part, size_t length) { return carryOut(fd, part, length, offset); },   \
            buffer, size, false);                                                                  \
    }
#define KVX_SYNC(name)                                                                             \
    int name(int fd)                                                                               \
    {                                                                                              \
        static const auto carryOut = next<int(int)>(#name);                                        \
        return strikes(FileWrite, #name, "file", { EIO, ENOSPC }) ? -1 : carryOut(fd);             \
    }
#define KVX_TRUNCATE(name, size_type)                                                              \
    int name(int fd, size_type size) noexcept                                                      \
    {                                                                                              \
        static const auto carryOut = next<int(int, size_type)>(#name);                             \
        return strikes(FileWrite, #name, "file", { EIO, ENOSPC }) ? -1 : carryOut(fd, size);       \
    }
#define KVX_NAMES(name)                                                                            \
    int name(const char *from, const char *to) noexcept                                            \
    {                                                                                              \
        static const auto carryOut = next<int(const char *, const char *)>(#name);                 \
        return nameStrikes(#name, to) ? -1 : carryOut(from, to);                                   \
    }

extern "C" {

KVX_OPEN(open)
KVX_OPEN(open64)
KVX_OPENAT(openat)
KVX_OPENAT(openat64)
KVX_CREAT(creat)
KVX_CREAT(creat64)
KVX_FOPEN(fopen)
KVX_FOPEN(fopen64)
KVX_MKSTEMP(mkstemp)
KVX_MKSTEMP(mkstemp64)
KVX_READ(pread, off_t)
KVX_READ(pread64, off64_t)
KVX_WRITE(pwrite, off_t)
KVX_WRITE(pwrite64, off64_t)
KVX_SYNC(fsync)
KVX_SYNC(fdatasync)
KVX_TRUNCATE(ftruncate, off_t)
KVX_TRUNCATE(ftruncate64, off64_t)
KVX_NAMES(rename)
KVX_NAMES(link)

int mkdir(const char *path, mode_t mode) noexcept
{
    static const auto carryOut = next<int(const char *, mode_t)>("mkdir");
    return nameStrikes("mkdir", path) ? -1 : carryOut(path, mode);
}

int renameat(int fromFolder, const char *from, int toFolder, const char *to) noexcept
{
    static const auto carryOut = next<int(int, const char *, int, const char *)>("renameat");
    return nameStrikes("renameat", to) ? -1 : carryOut(fromFolder, from, toFolder, to);
}

int renameat2(
    int fromFolder, const char *from, int toFolder, const char *to, unsigned flags) noexcept
{
    static const auto carryOut
        = next<int(int, const char *, int, const char *, unsigned)>("renameat2");
    return nameStrikes("renameat2", to) ? -1 : carryOut(fromFolder, from, toFolder, to, flags);
}

int linkat(int fromFolder, const char *from, int toFolder, const char *to, int flags) noexcept
{
    static const auto carryOut = next<int(int, const char *, int, const char *, int)>("linkat");
    return nameStrikes("linkat", to) ? -1 : carryOut(fromFolder, from, toFolder, to, flags);
}

ssize_t read(int fd, void *buffer, size_t size)
{
    static const auto carryOut = next<ssize_t(int, void *, size_t)>("read");
    return transfer(
        readStrikes("read", fd),
        [&](void *part, size_t length) { return carryOut(fd, part, length); }, buffer, size, true);
}

ssize_t write(int fd, const void *buffer, size_t size)
{
    static const auto carryOut = next<ssize_t(int, const void *, size_t)>("write");
    return transfer(
        writeStrikes("write", fd),
        [&](const void *part, size_t length) { return carryOut(fd, part, length); }, buffer, size,
        false);
}

ssize_t readv(int fd, const iovec *parts, int count)
{
    static const auto carryOut = next<ssize_t(int, const iovec *, int)>("readv");
    const int error = readStrikes("readv", fd);
    return error == inPart ? 0 : error != 0 ? failed(error) : carryOut(fd, parts, count);
}

ssize_t writev(int fd, const iovec *parts, int count)
{
    static const auto carryOut = next<ssize_t(int, const iovec *, int)>("writev");
    const int error = writeStrikes("writev", fd);
    if (error == inPart)
        return carryOut(fd, parts, std::max(1, count / 2));
    return error != 0 ? failed(error) : carryOut(fd, parts, count);
}

size_t fread(void *buffer, size_t size, size_t count, FILE *stream)
{
    static const auto carryOut = next<size_t(void *, size_t, size_t, FILE *)>("fread");
    if (readStrikes("fread", fileno(stream)) == 0)
        return carryOut(buffer, size, count, stream);
    stream->_flags |= streamFailed;
    errno = EIO;
    return 0;
}

size_t fwrite(const void *buffer, size_t size, size_t count, FILE *stream)
{
    static const auto carryOut = next<size_t(const void *, size_t, size_t, FILE *)>("fwrite");
    if (writeStrikes("fwrite", fileno(stream)) == 0)
        return carryOut(buffer, size, count, stream);
    stream->_flags |= streamFailed;
    errno = ENOSPC;
    return 0;
}

int fclose(FILE *stream)
{
    static const auto carryOut = next<int(FILE *)>("fclose");
    const int error = typeOf(fileno(stream)) == Descriptor::File && isWritten(stream)
        ? strike(FileWrite, "fclose", "file", { ENOSPC, EIO })
        : 0;
    const int result = carryOut(stream);
    return error != 0 ? static_cast<int>(failed(error)) : result;
}

int connect(int fd, const sockaddr *address, socklen_t size)
{
    static const auto carryOut = next<int(int, const sockaddr *, socklen_t)>("connect");
    return strikes(Network, "connect", "socket", { ECONNREFUSED, ETIMEDOUT, ENETUNREACH })
        ? -1
        : carryOut(fd, address, size);
}

int accept(int fd, sockaddr *address, socklen_t *size)
{
    static const auto carryOut = next<int(int, sockaddr *, socklen_t *)>("accept");
    return accepted(fd, "accept", [&] { return carryOut(fd, address, size); });
}

int accept4(int fd, sockaddr *address, socklen_t *size, int flags)
{
    static const auto carryOut = next<int(int, sockaddr *, socklen_t *, int)>("accept4");
    return accepted(fd, "accept4", [&] { return carryOut(fd, address, size, flags); });
}

ssize_t send(int fd, const void *buffer, size_t size, int flags)
{
    static const auto carryOut = next<ssize_t(int, const void *, size_t, int)>("send");
    const int error = writeStrikes("send", fd);
    return error != 0 ? failed(error) : carryOut(fd, buffer, size, flags);
}

ssize_t sendto(int fd, const void *buffer, size_t size, int flags, const sockaddr *address,
    socklen_t addressSize)
{
    static const auto carryOut
        = next<ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t)>("sendto");
    const int error = writeStrikes("sendto", fd);
    return error != 0 ? failed(error) : carryOut(fd, buffer, size, flags, address, addressSize);
}

ssize_t sendmsg(int fd, const msghdr *message, int flags)
{
    static const auto carryOut = next<ssize_t(int, const msghdr *, int)>("sendmsg");
    const int error = writeStrikes("sendmsg", fd);
    return error != 0 ? failed(error) : carryOut(fd, message, flags);
}

ssize_t recv(int fd, void *buffer, size_t size, int flags)
{
    static const auto carryOut = next<ssize_t(int, void *, size_t, int)>("recv");
    const int error = readStrikes("recv", fd);
    return error == inPart ? 0 : error != 0 ? failed(error) : carryOut(fd, buffer, size, flags);
}

ssize_t recvfrom(
    int fd, void *buffer, size_t size, int flags, sockaddr *address, socklen_t *addressSize)
{
    static const auto carryOut
        = next<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)>("recvfrom");
    const int error = readStrikes("recvfrom", fd);
    return error == inPart ? 0
        : error != 0       ? failed(error)
                           : carryOut(fd, buffer, size, flags, address, addressSize);
}

ssize_t recvmsg(int fd, msghdr *message, int flags)
{
    static const auto carryOut = next<ssize_t(int, msghdr *, int)>("recvmsg");
    const int error = readStrikes("recvmsg", fd);
    return error == inPart ? 0 : error != 0 ? failed(error) : carryOut(fd, message, flags);
}

} // extern "C"
