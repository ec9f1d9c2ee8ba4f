#include "tools/support/Interruption.h"

#include <atomic>
#include <csignal>
#include <iterator>

namespace Quorva::Tool {

namespace {

constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

constinit std::atomic<int> wishes = 0;
constinit Proc::Cancellation cancellation;
static_assert(std::atomic<int>::is_always_lock_free, "written in a signal handler");
constinit struct sigaction former[std::size(SIGNALS)] = {};

}  // namespace

Interruption::Interruption()
{
    wishes = 0;
    cancellation.Reset();
    struct sigaction action{};
    action.sa_handler = [](int signal) {
        cancellation.RequestStop();
        if (++wishes < 3)
            return;
        // Asked thrice: nothing here gets on.
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    };
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
}

bool Interruption::IsWanted() noexcept { return wishes > 0; }
bool Interruption::IsUrgent() noexcept { return wishes > 1; }
const Proc::Cancellation& Interruption::GetCancellation() noexcept { return cancellation; }

}  // namespace Quorva::Tool
