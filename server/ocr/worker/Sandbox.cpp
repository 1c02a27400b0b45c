#include "ocr/worker/Sandbox.h"

#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <grp.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace kvx::ocr {

namespace {

constexpr rlim_t mebibyte = rlim_t { 1 } << 20;
constexpr uid_t nobody = 65534;

bool limit(__rlimit_resource resource, rlim_t soft, rlim_t hard)
{
    const rlimit value { soft, hard };
    return setrlimit(resource, &value) == 0;
}

bool setLimits(unsigned cpuSeconds)
{
    bool all = limit(RLIMIT_AS, 2048 * mebibyte, 2048 * mebibyte);
    all = limit(RLIMIT_CPU, cpuSeconds, cpuSeconds + 1) && all;
    all = limit(RLIMIT_FSIZE, 64 * mebibyte, 64 * mebibyte) && all;
    all = limit(RLIMIT_CORE, 0, 0) && all;
    all = limit(RLIMIT_NOFILE, 64, 64) && all;
    return limit(RLIMIT_NPROC, 0, 0) && all;
}

bool becomeNobody()
{
    if (geteuid() != 0)
        return true;
    return setgroups(0, nullptr) == 0 && setresgid(nobody, nobody, nobody) == 0
        && setresuid(nobody, nobody, nobody) == 0;
}

/// A network of its own has no way out. Without privileges it takes a user namespace besides.
bool leaveNetwork()
{
    return unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
}

bool allowReading(int rules, const char *folder)
{
    const int handle = open(folder, O_PATH | O_CLOEXEC);
    if (handle < 0)
        return true; // what is not there needs no rule
    landlock_path_beneath_attr rule {};
    rule.allowed_access = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
    rule.parent_fd = handle;
    const bool added
        = syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
    close(handle);
    return added;
}

/// From here on only language data, fonts and libraries can be opened.
bool confineFiles()
{
    landlock_ruleset_attr attributes {};
    attributes.handled_access_fs = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1; // all of version 1
    const auto rules
        = static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0));
    if (rules < 0)
        return false;
    bool confined = true;
    for (const char *folder : { "/usr", "/lib", "/lib64", "/etc", "/var/cache/fontconfig" })
        confined = allowReading(rules, folder) && confined;
    confined = confined && syscall(SYS_landlock_restrict_self, rules, 0) == 0;
    close(rules);
    return confined;
}

#if defined(__x86_64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_AARCH64;
#else
constexpr std::uint32_t architecture = 0;
#endif

constexpr std::uint32_t deny = SECCOMP_RET_ERRNO | 1; // EPERM

sock_filter load(std::size_t offset)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}

/// Network, processes, other processes, and everything that changes the file system by name.
const std::vector<long> deniedCalls = {
    SYS_socket,
    SYS_socketpair,
    SYS_connect,
    SYS_bind,
    SYS_listen,
    SYS_accept,
    SYS_accept4,
    SYS_sendto,
    SYS_sendmsg,
    SYS_sendmmsg,
    SYS_execve,
    SYS_execveat,
    SYS_clone,
    SYS_clone3,
    SYS_ptrace,
    SYS_kill,
    SYS_process_vm_readv,
    SYS_process_vm_writev,
    SYS_mount,
    SYS_umount2,
    SYS_chroot,
    SYS_pivot_root,
    SYS_unshare,
    SYS_setns,
    SYS_keyctl,
    SYS_add_key,
    SYS_request_key,
    SYS_bpf,
    SYS_perf_event_open,
    SYS_io_uring_setup,
    SYS_userfaultfd,
    SYS_openat2,
    SYS_unlinkat,
    SYS_renameat,
    SYS_renameat2,
    SYS_linkat,
    SYS_symlinkat,
    SYS_mkdirat,
    SYS_mknodat,
    SYS_fchmodat,
    SYS_fchownat,
    SYS_truncate,
#if defined(__x86_64__)
    SYS_fork,
    SYS_vfork,
    SYS_creat,
    SYS_unlink,
    SYS_rename,
    SYS_link,
    SYS_symlink,
    SYS_mkdir,
    SYS_rmdir,
    SYS_mknod,
    SYS_chmod,
    SYS_chown,
    SYS_lchown,
#endif
};

void denyWritingOpen(std::vector<sock_filter> &filter, long call, std::size_t flagsArgument)
{
    const std::size_t flags = offsetof(seccomp_data, args) + flagsArgument * sizeof(std::uint64_t);
    constexpr std::uint32_t writing = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC;
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0, 4));
    filter.push_back(load(flags));
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, writing, 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, deny));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
}

bool filterCalls()
{
    if (architecture == 0)
        return false;
    std::vector<sock_filter> filter
        = { load(offsetof(seccomp_data, arch)),
              BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, architecture, 1, 0),
              BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
              load(offsetof(seccomp_data, nr)),
#if defined(__x86_64__)
              // The same calls again under other numbers.
              BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, 0x40000000, 0, 1),
              BPF_STMT(BPF_RET | BPF_K, deny),
#endif
          };
    for (const long call : deniedCalls) {
        filter.push_back(
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, deny));
    }
    denyWritingOpen(filter, SYS_openat, 2);
#if defined(__x86_64__)
    denyWritingOpen(filter, SYS_open, 1);
#endif
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program { static_cast<unsigned short>(filter.size()), filter.data() };
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

} // namespace

std::string enterSandbox(unsigned cpuSeconds)
{
    std::string words;
    const auto note = [&words](bool done, const char *word) {
        if (done)
            words += (words.empty() ? "" : " ") + std::string(word);
    };
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    note(setLimits(cpuSeconds), "limits");
    note(leaveNetwork(), "network");
    note(becomeNobody(), "user");
    note(confineFiles(), "files");
    note(filterCalls(), "calls");
    return words;
}

} // namespace kvx::ocr
