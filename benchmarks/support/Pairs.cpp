#include "benchmarks/support/Pairs.h"

#include "tests/support/FailingAllocator.h"

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <ctime>
#include <stdexcept>

namespace Benchmarks {

namespace {

std::vector<Pair>& Pairs()
{
    static std::vector<Pair> pairs;
    return pairs;
}

double ThreadSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double TimeOf(const Work& work, int64_t times)
{
    const double start = ThreadSeconds();
    work(times);
    return ThreadSeconds() - start;
}

double AllocationsOf(const Work& work, int64_t times)
{
    const long before = FailingAllocator::GetAllocations();
    work(times);
    return static_cast<double>(FailingAllocator::GetAllocations() - before) / static_cast<double>(times);
}

/// How often a side does its work for a round to be long enough. Each side has its own number: where one is
/// a hundred times faster, the same number would measure the clock.
int64_t TimesFor(const Work& work, double seconds)
{
    for (int64_t times = 1;; times *= 2) {
        const double taken = TimeOf(work, times);
        if (taken > seconds / 2)
            return std::max<int64_t>(1, std::llround(static_cast<double>(times) * seconds / taken));
    }
}

double Quantile(std::vector<double>& values, double part)
{
    const auto place = values.begin() + static_cast<ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::ranges::nth_element(values, place);
    return *place;
}

}  // namespace

void Add(Pair pair) { Pairs().push_back(std::move(pair)); }

const std::vector<Pair>& GetPairs() { return Pairs(); }

Result Measure(const Pair& pair, int rounds)
{
    Result result{.name = pair.name, .peer = pair.peer, .limit = pair.limit};
    const int64_t times = pair.times ? pair.times : TimesFor(pair.ours, pair.seconds);
    const int64_t peersTimes = pair.times ? pair.times : TimesFor(pair.peers, pair.seconds);
    std::vector<double> ratios, seconds;
    for (int round = 0; round < rounds; ++round) {
        double ours = 0, peers = 0;
        for (const bool mine : {round % 2 == 0, round % 2 != 0})
            (mine ? ours : peers) = mine ? TimeOf(pair.ours, times) / static_cast<double>(times)
                                         : TimeOf(pair.peers, peersTimes) / static_cast<double>(peersTimes);
        ratios.push_back(ours / peers);
        seconds.push_back(ours);
    }
    result.ratio = Quantile(ratios, 0.5);
    result.lowerQuartile = Quantile(ratios, 0.25);
    result.upperQuartile = Quantile(ratios, 0.75);
    result.seconds = Quantile(seconds, 0.5);
    result.allocations = AllocationsOf(pair.ours, times);
    result.peersAllocations = AllocationsOf(pair.peers, peersTimes);
    if (pair.countInstructions) {
        // What the loop around it takes goes out of the sum.
        const auto perTime = [](const Work& work) {
            const auto count = [&](int64_t n) {
                return static_cast<double>(CountInstructions([&] { work(n); }));
            };
            return (count(12) - count(2)) / 10;
        };
        result.instructions = perTime(pair.ours);
        result.peersInstructions = perTime(pair.peers);
    }
    return result;
}

uint64_t CountInstructions(const std::function<void()>& work)
{
    work();  // what is done once only
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no child process");
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        work();
        raise(SIGSTOP);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    uint64_t count = 0;
    // Between the two stops, and a little of raise() itself on both sides, which cancels out.
    for (;; ++count) {
        if (ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) < 0)
            throw std::runtime_error("no debugging here");
        waitpid(child, &status, 0);
        if (!WIFSTOPPED(status) || WSTOPSIG(status) != SIGTRAP)
            break;
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return count;
}

}  // namespace Benchmarks
