#include "tools/support/Interruption.h"

#include <atomic>
#include <csignal>
#include <iterator>

namespace Quorva::Tool {

namespace {

constexpr int SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

constinit std::atomic<int> wishes = 0;
static_assert(std::atomic<int>::is_always_lock_free, "written in a signal handler");
constinit bool keepWishes = false;
constinit struct sigaction former[std::size(SIGNALS)] = {};

}  // namespace

Interruption::Interruption()
{
    if (!keepWishes)
        wishes = 0;
    struct sigaction action{};
    action.sa_handler = [](int signal) {
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

void Interruption::AcceptPrivateStop() noexcept
{
    wishes = 0;
    keepWishes = true;
    struct sigaction action{};
    action.sa_handler = [](int) { ++wishes; };
    action.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &action, nullptr);
}

}  // namespace Quorva::Tool
