// Opens untrusted files, each in a sandboxed process that can only read it: isolated FILE...
#include "OpenFile.h"

#include <linux/landlock.h>
#include <poll.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

using namespace Quorva;

constexpr int timeoutMs = 10'000;
constexpr rlim_t moreMemory = 512 << 20;  // bytes beyond what the parent maps

/// From here on no file is opened, and none can be written that isn't open.
void CloseFileSystem()
{
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    landlock_ruleset_attr rules{};
    rules.handled_access_fs = LANDLOCK_ACCESS_FS_MAKE_SYM * 2 - 1;  // all that the first version knows
    const long set = syscall(SYS_landlock_create_ruleset, &rules, sizeof rules.handled_access_fs, 0);
    if (set < 0)
        return;  // this kernel has no Landlock; the filter of system calls refuses openat as well
    if (syscall(SYS_landlock_restrict_self, set, 0) < 0)
        Fail("Landlock refuses its rules");
    close(static_cast<int>(set));
}

constexpr const char* allowedCalls[] = {
    // the input, and the answer
    "read", "pread64", "lseek", "fstat", "write", "close",
    // memory, time, and one thread
    "mmap", "munmap", "mremap", "mprotect", "brk", "madvise", "futex", "clock_gettime", "clock_nanosleep",
    "getrandom", "sched_getaffinity", "getpid", "gettid",
    // the end
    "tgkill", "rt_sigaction", "rt_sigprocmask", "rt_sigreturn", "exit_group"};

/// Everything else fails with EPERM: sockets, programs, traces.
void RestrictCalls()
{
    const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ERRNO(EPERM));
    for (const char* name : allowedCalls)
        seccomp_rule_add(filter, SCMP_ACT_ALLOW, seccomp_syscall_resolve_name(name), 0);
    if (!filter || seccomp_load(filter) < 0)
        Fail("the kernel refuses the filter of system calls");
    seccomp_release(filter);
}

void LimitResources()
{
    rlim_t pages = 0;  // of the parent's, which the child has as well
    std::ifstream("/proc/self/statm") >> pages;
    const auto limit = [](auto what, rlim_t most) {
        const rlimit both{most, most};
        setrlimit(what, &both);
    };
    limit(RLIMIT_AS, pages * sysconf(_SC_PAGESIZE) + moreMemory);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 64 * 1024);  // a pipe has none; files can't be filled
}

std::string Describe(const char* path)
try {
    const auto stream = Core::DataInputFile::Create(path);  // while files can still be opened
    LimitResources();
    CloseFileSystem();
    RestrictCalls();
    OpenFile file(stream);
    return std::string(file->iformat->name) + ", " + std::to_string(file->nb_streams) + " streams";
} catch (const std::exception& e) {
    return e.what();
}

/// One line about a file, whatever becomes of the process that reads it.
std::string DescribeIsolated(const char* path)
{
    int pipes[2];
    if (pipe(pipes) < 0)
        Fail("no pipe");
    std::fflush(stdout);
    const pid_t worker = fork();  // the parent has loaded FFmpeg, and has one thread
    if (worker < 0)
        Fail("no process");
    if (worker == 0) {
        const std::string answer = Describe(path);
        _exit(write(pipes[1], answer.data(), answer.size()) < 0);
    }
    close(pipes[1]);
    pollfd ready{pipes[0], POLLIN, 0};
    const bool inTime = poll(&ready, 1, timeoutMs) > 0;
    char bytes[4096];  // less than a pipe holds: one write, one read
    const ssize_t size = inTime ? read(pipes[0], bytes, sizeof bytes) : 0;
    close(pipes[0]);
    kill(worker, SIGKILL);  // done, or too slow
    int status = 0;
    waitpid(worker, &status, 0);
    if (size > 0)
        return {bytes, static_cast<size_t>(size)};
    if (!inTime)
        return "no answer in time";
    return WIFSIGNALED(status) ? std::string("crashed: ") + strsignal(WTERMSIG(status)) : "no answer";
}

int main(int argc, char** argv)
try {
    for (int i = 1; i < argc; ++i)
        std::printf("%s: %s\n", argv[i], DescribeIsolated(argv[i]).c_str());
} catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
}
