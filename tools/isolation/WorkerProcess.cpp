#include "tools/isolation/WorkerProcess.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/isolation/Worker.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <new>
#include <system_error>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowSystem(const char* what)
{
    Proc::Details::Throw<Proc::ProcException>("{}: {}", what, std::system_category().message(errno));
}

WorkerState* MapState()
{
    void* const page =
        mmap(nullptr, sizeof(WorkerState), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        ThrowSystem("can't share memory with a worker");
    return new (page) WorkerState{};
}

struct Ends {
    Descriptor ours, theirs;
};

/// A pipe that is read here without waiting.
Ends MakePipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0)
        ThrowSystem("can't make a pipe for a worker");
    Ends pipe{Descriptor(ends[0]), Descriptor(ends[1])};
    if (fcntl(ends[0], F_SETFL, O_NONBLOCK) < 0)
        ThrowSystem("can't set up a pipe for a worker");
    return pipe;
}

Ends MakeSockets()
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) < 0)
        ThrowSystem("can't make sockets for a worker");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// Keeps signals away from a worker that has not yet said what to do about them.
class SignalsBlocked {
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, &former);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &former, nullptr); }

private:
    sigset_t former;
};

}  // namespace

void FlushOutput()
{
    if (std::fflush(stdout) != 0)
        ThrowSystem("can't write the output");
}

bool IsOutputShared()
{
    struct stat output{}, errors{};
    return fstat(STDOUT_FILENO, &output) == 0 && fstat(STDERR_FILENO, &errors) == 0 &&
           output.st_dev == errors.st_dev && output.st_ino == errors.st_ino && !S_ISREG(output.st_mode);
}

void WorkerProcess::Unmap::operator()(WorkerState* page) const noexcept { munmap(page, sizeof *page); }

WorkerProcess::WorkerProcess(IsolatedWork& work, const Sandbox& sandbox, const IsolationOptions& options)
    : state(MapState())
{
    Ends sockets = MakeSockets(), outputs = MakePipe(), errorsPipe;
    if (!IsOutputShared())
        errorsPipe = MakePipe();
    // The worker would print what is waiting here a second time.
    FlushOutput();
    std::fflush(stderr);
    const Details::WorkerStart start{getpid(), sockets.theirs.Get(), outputs.theirs.Get(),
                                     errorsPipe.theirs ? errorsPipe.theirs.Get() : outputs.theirs.Get(),
                                     state.get()};
    const SignalsBlocked blocked;
    process = fork();
    if (process == 0)
        Details::LiveAsWorker(start, work, sandbox, options);
    if (process < 0) {
        process = 0;
        ThrowSystem("can't start a worker");
    }
    control = std::move(sockets.ours);
    output = std::move(outputs.ours);
    errors = std::move(errorsPipe.ours);
}

WorkerProcess::~WorkerProcess() { Reap(); }

void WorkerProcess::Signal(int signal) const
{
    if (process > 0)
        kill(process, signal);  // not reaped yet, so the number is still the child's
}

WorkerEnd WorkerProcess::Reap()
{
    WorkerEnd end;
    if (process == 0)
        return end;
    kill(process, SIGKILL);  // keeps the status of one that is dying already
    rusage usage{};
    pid_t result;
    do
        result = wait4(process, &end.status, 0, &usage);
    while (result < 0 && errno == EINTR);
    process = 0;
    end.memory = static_cast<uint64_t>(usage.ru_maxrss) * 1024;
    end.outOfMemory = state->outOfMemory.load() != 0;
    return end;
}

}  // namespace Quorva::Tool
