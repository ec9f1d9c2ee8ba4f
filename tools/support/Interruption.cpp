#include "tools/support/Interruption.h"

#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <iterator>
#include <utility>

namespace Quorva::Tool {

namespace {

constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int exitCode = 130;
constexpr int64_t mostProcessorTime = 400'000'000;  // ns, of all threads
constexpr int64_t mostTime = 3'000'000'000;         // ns
constexpr Interruption::Milliseconds urgentPatience(300);
constexpr unsigned alarmSeconds = 2;
/// Not even the thread that ends the process gets on.
constexpr int desperate = 10;  // signals

constinit std::atomic<int> wishes = 0;
constinit bool keepWishes = false;
constinit std::atomic<bool> ended = false;    ///< the object's life
constinit std::atomic<int64_t> wantedAt = 0;  // ns, these two: when the first signal came
constinit std::atomic<int64_t> wantedAtProcessorTime = 0;
constinit Proc::Cancellation cancellation;
constinit Proc::Cancellation urgentCancellation;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<int64_t>::is_always_lock_free,
              "written in a signal handler");
constinit struct sigaction former[std::size(SIGNALS)] = {};
constinit bool timed = false;                  ///< the object has no thread
constinit void (*discardAtAlarm)() = nullptr;  ///< for an object without a thread
constinit sem_t changed = {};                  ///< posted at each signal, and at the object's end

int64_t Now(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);  // known clocks: can't fail
    return time.tv_sec * INT64_C(1'000'000'000) + time.tv_nsec;
}

void Reset()
{
    wishes = 0;
    cancellation.Reset();
    urgentCancellation.Reset();
}

/// Calls of the system and atomic variables only.
void Handle(int signal)
{
    if (wishes == 0) {
        wantedAt = Now(CLOCK_MONOTONIC);
        wantedAtProcessorTime = Now(CLOCK_PROCESS_CPUTIME_ID);
    }
    const int count = ++wishes;
    cancellation.RequestStop();
    if (count > 1)
        urgentCancellation.RequestStop();
    sem_post(&changed);
    if (timed && count == 1)
        alarm(alarmSeconds);
    if (count < desperate)
        return;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// Of SIGALRM: the one thread is in a call that doesn't return.
void EndAtAlarm(int)
{
    if (discardAtAlarm)
        discardAtAlarm();
    _exit(exitCode);
}

/// Waits for a signal or the object's end.
/// @param limit  on CLOCK_MONOTONIC, ns; nothing: none
/// @return       false when the limit is reached
bool AwaitChange(std::optional<int64_t> limit)
{
    if (!limit) {
        while (sem_wait(&changed) != 0) {
        }
        return true;
    }
    const timespec until{*limit / 1'000'000'000, *limit % 1'000'000'000};
    while (sem_clockwait(&changed, CLOCK_MONOTONIC, &until) != 0)
        if (errno != EINTR)
            return false;
    return true;
}

void Watch(void (*discard)(), std::optional<Interruption::Milliseconds> patience)
{
    using Nanoseconds = std::chrono::nanoseconds;
    std::optional<int64_t> limit;
    int seen = 0;
    while (!ended) {
        if (const int count = wishes; count > seen && seen < 2) {
            seen = count;
            if (count > 1)
                limit = Now(CLOCK_MONOTONIC) + Nanoseconds(urgentPatience).count();
            else if (patience)
                limit = Now(CLOCK_MONOTONIC) + Nanoseconds(*patience).count();
        }
        if (AwaitChange(limit) || ended)
            continue;
        if (discard)
            discard();
        _exit(exitCode);
    }
}

}  // namespace

Interruption::Interruption(void (*discard)(), std::optional<Milliseconds> patience)
{
    if (!keepWishes)
        Reset();
    sem_init(&changed, 0, 0);  // can't fail for one process and the value 0
    ended = false;
    TakeSignals();
    watching = std::jthread(Watch, discard, patience);
}

Interruption::Interruption(Unwatched unwatched)
{
    if (!keepWishes)
        Reset();
    ended = false;
    discardAtAlarm = unwatched.discard;
    timed = true;
    std::signal(SIGALRM, EndAtAlarm);
    TakeSignals();
}

void Interruption::ShowLife() noexcept
{
    if (timed && IsWanted())
        alarm(alarmSeconds);
}

void Interruption::TakeSignals()
{
    struct sigaction action{};
    action.sa_handler = Handle;
    action.sa_flags = SA_RESTART;
    for (size_t i = 0; i < std::size(SIGNALS); ++i) {
        sigaction(SIGNALS[i], nullptr, &former[i]);  // known signals: can't fail
        if (former[i].sa_handler != SIG_IGN)         // `nohup` stays in force
            sigaction(SIGNALS[i], &action, nullptr);
    }
}

Interruption::~Interruption()
{
    for (size_t i = 0; i < std::size(SIGNALS); ++i)
        sigaction(SIGNALS[i], &former[i], nullptr);
    if (std::exchange(timed, false))
        alarm(0);
    ended = true;
    sem_post(&changed);
}

bool Interruption::IsWanted() noexcept { return wishes > 0; }

bool Interruption::IsOverdue() noexcept
{
    if (!IsWanted())
        return false;
    return IsUrgent() || Now(CLOCK_MONOTONIC) - wantedAt > mostTime ||
           Now(CLOCK_PROCESS_CPUTIME_ID) - wantedAtProcessorTime > mostProcessorTime;
}

bool Interruption::IsUrgent() noexcept { return wishes > 1; }
const Proc::Cancellation& Interruption::GetCancellation() noexcept { return cancellation; }
const Proc::Cancellation& Interruption::GetUrgentCancellation() noexcept { return urgentCancellation; }

void Interruption::AcceptPrivateStop() noexcept
{
    Reset();
    keepWishes = true;
    timed = false;  // the parent's
    struct sigaction action{};
    action.sa_handler = Handle;
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &action, nullptr);
}

}  // namespace Quorva::Tool
