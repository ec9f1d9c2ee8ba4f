// The system calls that a sandboxed process may make.
#include "tools/isolation/Sandbox.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/isolation/WorkerProcess.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>

namespace Quorva::Tool::Details {

namespace {

/// Harmless with any arguments, or limited by Landlock. Names that an architecture lacks are passed over.
constexpr const char* ALLOWED[] = {
    // open descriptors
    "read", "write", "readv", "writev", "pread64", "pwrite64", "preadv", "pwritev", "preadv2", "pwritev2",
    "lseek", "_llseek", "close", "close_range", "fstat", "fstat64", "ftruncate", "ftruncate64", "fallocate",
    "fsync", "fdatasync", "sync_file_range", "fadvise64", "fadvise64_64", "readahead", "flock", "dup", "dup2",
    "dup3", "fcntl", "fcntl64", "getdents64", "fstatfs", "fstatfs64", "pipe", "pipe2", "eventfd2", "poll",
    "ppoll", "select", "_newselect", "pselect6", "epoll_create1", "epoll_ctl", "epoll_wait", "epoll_pwait",
    "sendmsg", "recvmsg", "sendto", "recvfrom", "memfd_create",
    // names: opening is limited by Landlock
    "stat", "stat64", "lstat", "lstat64", "newfstatat", "fstatat64", "statx", "access", "faccessat",
    "faccessat2", "readlink", "readlinkat", "getcwd", "statfs", "statfs64",
    // memory
    "mmap", "mmap2", "munmap", "mprotect", "mremap", "madvise", "brk", "msync", "mincore", "mlock", "munlock",
    "membarrier", "get_mempolicy", "set_mempolicy", "mbind", "map_shadow_stack", "pkey_alloc", "pkey_free",
    "pkey_mprotect",
    // threads
    "futex", "futex_time64", "futex_waitv", "set_robust_list", "get_robust_list", "rseq", "exit",
    "exit_group", "sched_yield", "sched_getaffinity", "sched_setaffinity", "sched_getparam", "sched_setparam",
    "sched_getscheduler", "sched_setscheduler", "sched_get_priority_max", "sched_get_priority_min",
    "sched_getattr", "sched_setattr", "getpriority", "setpriority", "set_tid_address", "gettid", "getcpu",
    "arch_prctl", "set_thread_area",
    // signals to the process itself
    "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "sigreturn", "rt_sigpending", "rt_sigtimedwait",
    "rt_sigsuspend", "sigaltstack", "restart_syscall", "pause",
    // time, chance, and what the process is
    "clock_gettime", "clock_gettime64", "clock_getres", "clock_nanosleep", "nanosleep", "gettimeofday",
    "time", "times", "timer_create", "timer_settime", "timer_gettime", "timer_delete", "timerfd_create",
    "timerfd_settime", "getitimer", "setitimer", "getrandom", "getrusage", "getrlimit", "ugetrlimit",
    "sysinfo", "uname", "umask", "getpid", "getppid", "getpgrp", "getpgid", "getsid", "getuid", "geteuid",
    "getgid", "getegid", "getresuid", "getresgid", "getgroups", "capget"};

/// Allowed only where folders are writable; Landlock limits them to these.
constexpr const char* WRITING[] = {"open",       "openat",    "creat",  "unlink",   "unlinkat", "rename",
                                   "renameat",   "renameat2", "mkdir",  "mkdirat",  "rmdir",    "truncate",
                                   "truncate64", "chmod",     "fchmod", "fchmodat", "utimensat"};

/// Fail with EPERM instead of ENOSYS, so that messages give the reason.
constexpr const char* REFUSED[] = {"socket",
                                   "socketpair",
                                   "connect",
                                   "bind",
                                   "listen",
                                   "accept",
                                   "accept4",
                                   "execve",
                                   "execveat",
                                   "fork",
                                   "vfork",
                                   "ptrace",
                                   "process_vm_readv",
                                   "process_vm_writev",
                                   "mount",
                                   "umount2",
                                   "unshare",
                                   "setns",
                                   "chroot",
                                   "pivot_root",
                                   "setuid",
                                   "setgid",
                                   "chown",
                                   "fchown",
                                   "fchownat",
                                   "tkill",
                                   "rt_sigqueueinfo",
                                   "rt_tgsigqueueinfo",
                                   "pidfd_open",
                                   "pidfd_send_signal",
                                   "pidfd_getfd",
                                   "bpf",
                                   "perf_event_open",
                                   "keyctl",
                                   "add_key",
                                   "request_key",
                                   "open_by_handle_at",
                                   "userfaultfd",
                                   "setrlimit",
                                   "link",
                                   "linkat",
                                   "symlink",
                                   "symlinkat",
                                   "mknod",
                                   "mknodat"};

/// A call that is allowed with such an argument; with others it gives ENOSYS.
struct Limited {
    const char* name;
    scmp_arg_cmp condition;
};

constexpr scmp_arg_cmp Is(unsigned argument, uint64_t value) { return {argument, SCMP_CMP_EQ, value, 0}; }
constexpr scmp_arg_cmp Masked(unsigned argument, uint64_t mask, uint64_t value)
{
    return {argument, SCMP_CMP_MASKED_EQ, mask, value};
}

/// What makes an open() more than reading.
constexpr uint64_t OPEN_CHANGES = O_ACCMODE | O_CREAT | O_TRUNC | (O_TMPFILE & ~O_DIRECTORY);

constexpr Limited LIMITED[] = {
    {"clone", Masked(0, CLONE_THREAD, CLONE_THREAD)},
    {"kill", Is(0, PROCESS_PLACEHOLDER)},
    {"tgkill", Is(0, PROCESS_PLACEHOLDER)},
    {"prlimit64", Is(2, 0)}, // no new limits: reading only
    {"prctl", Is(0, PR_SET_NAME)},
    {"prctl", Is(0, PR_GET_NAME)},
    {"prctl", Is(0, PR_GET_DUMPABLE)},
    {"prctl", Is(0, PR_CAPBSET_READ)},
    {"prctl", Is(0, 0x53564d41)}, // PR_SET_VMA: names for memory
    {"ioctl", Is(1, TCGETS)}, // isatty()
    {"ioctl", Is(1, TIOCGWINSZ)},
    {"ioctl", Is(1, FIONREAD)},
    {"ioctl", Is(1, FIONBIO)},
    {"ioctl", Is(1, FIOCLEX)},
};

constexpr Limited READING[] = {
    {"open",   Masked(1, OPEN_CHANGES, O_RDONLY)},
    {"openat", Masked(2, OPEN_CHANGES, O_RDONLY)},
};

struct ReleaseFilter {
    void operator()(void* filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, ReleaseFilter>;

void Check(int result, const char* what)
{
    if (result < 0)
        Proc::Details::Throw<Proc::ProcException>("can't prepare the filter of system calls ({}): {}", what,
                                                  -result);
}

void Add(const Filter& filter, uint32_t action, const char* name, unsigned conditions = 0,
         const scmp_arg_cmp* condition = nullptr)
{
    const int number = seccomp_syscall_resolve_name(name);
    if (number >= 0)
        Check(seccomp_rule_add_array(filter.get(), action, number, conditions, condition), name);
}

}  // namespace

namespace {

std::vector<sock_filter> CompileFilter(bool devices, bool writing)
{
    // ENOSYS: the C library falls back from calls that are newer than this list.
    const Filter filter(seccomp_init(SCMP_ACT_ERRNO(ENOSYS)));
    Check(filter ? 0 : -ENOMEM, "init");
    Check(seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2), "optimize");
    for (const char* const name : ALLOWED)
        Add(filter, SCMP_ACT_ALLOW, name);
    for (const Limited& row : LIMITED)
        Add(filter, SCMP_ACT_ALLOW, row.name, 1, &row.condition);
    if (devices)
        Add(filter, SCMP_ACT_ALLOW, "ioctl");  // replaces the rows above
    if (writing || devices)
        for (const char* const name : WRITING)
            Add(filter, SCMP_ACT_ALLOW, name);
    else
        for (const Limited& row : READING)
            Add(filter, SCMP_ACT_ALLOW, row.name, 1, &row.condition);
    for (const char* const name : REFUSED)
        Add(filter, SCMP_ACT_ERRNO(EPERM), name);
    size_t size = 0;
    Check(seccomp_export_bpf_mem(filter.get(), nullptr, &size), "measure");
    std::vector<sock_filter> program(size / sizeof(sock_filter));
    Check(seccomp_export_bpf_mem(filter.get(), program.data(), &size), "export");
    return program;
}

/// In a process of its own: compiles the filter and writes it to `output`.
[[noreturn]] void CompileInto(int output, bool devices, bool writing) noexcept
{
    try {
        const std::vector<sock_filter> program = CompileFilter(devices, writing);
        const auto size = static_cast<ssize_t>(program.size() * sizeof(sock_filter));
        _exit(write(output, program.data(), static_cast<size_t>(size)) == size ? 0 : 1);
    } catch (...) {
        _exit(1);  // the parent has no filter, and says so
    }
}

}  // namespace

std::vector<sock_filter> MakeCallFilter(bool devices, bool writing)
{
    const uint32_t action = SECCOMP_RET_ERRNO;
    if (syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) != 0)
        return {};
    // libseccomp frees memory twice when it is out of it. That is to end another process than this one.
    int ends[2];
    Check(pipe2(ends, O_CLOEXEC) < 0 ? -errno : 0, "pipe");
    const Descriptor input(ends[0]);
    Descriptor output(ends[1]);
    FlushOutput();  // or it could be written by both processes
    const pid_t compiler = fork();
    Check(compiler < 0 ? -errno : 0, "fork");
    if (compiler == 0)
        CompileInto(output.Get(), devices, writing);
    output = {};
    std::vector<sock_filter> program(BPF_MAXINSNS);  // the kernel takes no more
    auto* const bytes = reinterpret_cast<char*>(program.data());
    const size_t room = program.size() * sizeof(sock_filter);
    size_t size = 0;
    for (ssize_t count = 1; count > 0 || (count < 0 && errno == EINTR);) {
        count = read(input.Get(), bytes + size, room - size);
        size += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    int status = 0;
    while (waitpid(compiler, &status, 0) < 0 && errno == EINTR) {
    }
    Check(status == 0 && size > 0 ? 0 : -ENOMEM, "compile");
    program.resize(size / sizeof(sock_filter));
    return program;
}

}  // namespace Quorva::Tool::Details
