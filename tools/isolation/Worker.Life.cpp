// A worker's process: signals, limits, sandbox, one file.
#include "tools/isolation/Worker.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "tools/support/Console.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

namespace Quorva::Tool::Details {

namespace {

constexpr int CONTROL = 3;  ///< descriptor, behind the standard ones
constexpr rlim_t MAX_DESCRIPTORS = 256;
constexpr size_t STACK = 2 * 1024 * 1024;  ///< bytes for each thread; the usual 8 MiB count as memory
constexpr uintptr_t NULL_PAGES = 65536;    ///< addresses that a null pointer with an offset leads to
constinit std::terminate_handler formerTerminate = nullptr;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;  // they map terabytes, and report crashes themselves
#else
constexpr bool SANITIZED = false;
#endif

[[noreturn]] void ThrowSystem(const char* what)
{
    Proc::Details::Throw<Proc::ProcException>("{}: {}", what, std::system_category().message(errno));
}

class SocketLink final : public WorkerLink {
public:
    ControlMessage Ask(ControlMessage request) override
    {
        if (!SendMessage(CONTROL, request, true))
            return {};
        return ReceiveMessage(CONTROL, true, true);
    }
    void Send(ControlMessage message) override
    {
        std::fflush(stdout);  // what was printed before comes before
        if (!SendMessage(CONTROL, message, true))
            Proc::Details::Throw<Core::IOException>("can't reach the parent process: {}",
                                                    std::system_category().message(errno));
    }
};

/// The parent knows whether there is a terminal, and its colours.
void SendLine(std::string_view text, bool complaint)
{
    std::fflush(stdout);
    ControlMessage message;
    message.kind = complaint ? ControlMessage::Kind::Complaint : ControlMessage::Kind::Line;
    message.payload = text.substr(0, ControlMessage::MAX_SIZE);
    SendMessage(CONTROL, message, true);  // not examined: fails only when the parent has gone
}

/// Puts the worker's descriptors in their places, and closes all that belong to the parent or other workers.
void ArrangeDescriptors(const WorkerStart& start)
{
    const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int wanted[] = {input, start.output, start.errors, start.control};
    int moved[std::size(wanted)];
    for (size_t i = 0; i < std::size(wanted); ++i)  // out of one another's way
        if ((moved[i] = fcntl(wanted[i], F_DUPFD_CLOEXEC, CONTROL + 1)) < 0)
            ThrowSystem("can't duplicate a descriptor");
    for (size_t i = 0; i < std::size(wanted); ++i)
        if (dup2(moved[i], static_cast<int>(i)) < 0)
            ThrowSystem("can't place a descriptor");
    if (close_range(CONTROL + 1, UINT_MAX, 0) == 0)
        return;
    for (long number = CONTROL + 1; number < sysconf(_SC_OPEN_MAX); ++number)  // Linux before 5.9
        close(static_cast<int>(number));
}

void OnCrash(int signal, siginfo_t* info, void*)
{
    // A failed allocation leaves its error number behind, and who does not look uses the null pointer.
    const bool ofNull =
        (signal != SIGSEGV && signal != SIGBUS) || reinterpret_cast<uintptr_t>(info->si_addr) < NULL_PAGES;
    if (errno == ENOMEM && ofNull)
        workerState->outOfMemory = 1;
    std::raise(signal);  // by its default action
}

[[noreturn]] void OnTerminate()
{
    try {
        if (std::current_exception())
            throw;
    } catch (const std::bad_alloc&) {
        workerState->outOfMemory = 1;
    } catch (const Core::MemoryException&) {
        workerState->outOfMemory = 1;
    } catch (...) {
        // a crash like others
    }
    formerTerminate();
    std::abort();
}

void ArrangeSignals(pid_t parent)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        std::signal(signal, SIG_IGN);  // the parent passes them on
    Interruption::AcceptPrivateStop();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)  // it died before that
        _exit(1);
    formerTerminate = std::set_terminate(OnTerminate);
    if (SANITIZED)
        return;
    static char stack[16384];
    const stack_t alternate{stack, 0, sizeof stack};
    sigaltstack(&alternate, nullptr);
    struct sigaction action{};
    action.sa_sigaction = OnCrash;
    action.sa_flags = SA_SIGINFO | SA_RESETHAND | SA_NODEFER | SA_ONSTACK;
    for (const int signal : {SIGSEGV, SIGBUS, SIGABRT, SIGILL, SIGFPE, SIGTRAP})
        sigaction(signal, &action, nullptr);
}

void Limit(decltype(RLIMIT_CORE) resource, rlim_t value)
{
    rlimit limit{};
    getrlimit(resource, &limit);
    limit.rlim_cur = limit.rlim_max = std::min(limit.rlim_max, value);
    if (setrlimit(resource, &limit) < 0)
        ThrowSystem("can't set a limit");
}

/// Bytes of writable private memory that the process has mapped.
uint64_t DataSize()
{
    unsigned long long pages = 0;
    std::FILE* const file = std::fopen("/proc/self/statm", "re");
    const int found = file ? std::fscanf(file, "%*u %*u %*u %*u %*u %llu", &pages) : 0;
    if (file)
        std::fclose(file);
    if (found != 1)
        Proc::Details::Throw<Proc::ProcException>("can't read /proc/self/statm");
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

/// RLIMIT_DATA, as RLIMIT_AS also counts what is only reserved, and every library and mapped file.
void LimitMemory(uint64_t budget)
{
    if (budget == 0)
        return;
    SetMemoryBudget(budget);
    av_max_alloc(
        std::min<uint64_t>(budget / 2, INT_MAX));  // as without a worker; INT_MAX is FFmpeg's default
    if (SANITIZED)
        return;
    pthread_attr_t threads;
    pthread_attr_init(&threads);
    pthread_attr_setstacksize(&threads, STACK);
    pthread_setattr_default_np(&threads);  // not examined: the usual size works too
    pthread_attr_destroy(&threads);
    Limit(RLIMIT_DATA, DataSize() + budget);
}

/// Everything that comes before the first byte of a stranger's file.
void SetUp(const WorkerStart& start, const Sandbox& sandbox, const IsolationOptions& options)
{
    workerState = start.state;
    ArrangeSignals(start.parent);
    sandbox.RestrictFiles();
    ArrangeDescriptors(start);
    Limit(RLIMIT_CORE, 0);
    Limit(RLIMIT_NOFILE, MAX_DESCRIPTORS);
    LimitMemory(options.maxMemory);
    SetLineHandler(SendLine);
    sandbox.RestrictCalls();
}

int ProcessOne(IsolatedWork& work, const ControlMessage& task)
{
    const size_t middle = task.payload.find('\0');  // from the parent, which is trusted
    const WalkedFile file{task.payload.substr(middle + 1), task.payload.substr(0, middle)};
    SocketLink link;
    const LinkInUse inUse(link);
    try {
        return work.Process(task.number, file);
    } catch (...) {
        PrintFailure(file.path, CurrentFailure(file.path), false);
        return 1;
    }
}

}  // namespace

void LiveAsWorker(const WorkerStart& start, IsolatedWork& work, const Sandbox& sandbox,
                  const IsolationOptions& options) noexcept
{
    ControlMessage message;
    try {
        SetUp(start, sandbox, options);
    } catch (...) {
        message.kind = ControlMessage::Kind::Broken;
        message.payload = CurrentFailure({}).description;
        SendMessage(start.control, message, true);  // not examined: the parent learns of the end in any case
        _exit(1);
    }
    const ControlMessage task = ReceiveMessage(CONTROL, true, false);
    if (task.kind != ControlMessage::Kind::Task)
        _exit(0);  // not needed any more
    message.kind = ControlMessage::Kind::Done;
    message.number = static_cast<uint64_t>(ProcessOne(work, task));
    std::fflush(nullptr);  // not examined: the parent, who reads it, can't fail
    SendMessage(CONTROL, message, true);
    _exit(0);  // what the parent registered for its own end is not ours
}

}  // namespace Quorva::Tool::Details
