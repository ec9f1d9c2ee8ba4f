/// @file
/// Ours beside its peer: both in one process, in turns.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace Benchmarks {

/// What one side does so many times; it keeps the compiler from leaving anything out.
using Work = std::function<void(int64_t times)>;

/// One row of the table.
struct Pair {
    std::string name{};
    std::string peer{};
    Work ours;
    Work peers;
    double limit = std::numeric_limits<double>::infinity();  ///< that the ratio should not exceed
    /// What a round does is chosen so that the peer takes about this long.
    double seconds = 0.002;
    /// Nonzero where time is no measure, as for what can be done once only: so many times in each round.
    int64_t times = 0;
    bool countInstructions = false;  ///< of one time, in a process of its own
};

/// To be called before main() measures, for each row.
void Add(Pair pair);
const std::vector<Pair>& GetPairs();

/// What came out of a row.
struct Result {
    std::string name{};
    std::string peer{};
    double ratio = 0;  ///< the median of all rounds
    double lowerQuartile = 0;
    double upperQuartile = 0;
    double limit = 0;
    double seconds = 0;  ///< ours, once
    double allocations = 0, peersAllocations = 0;
    double instructions = 0, peersInstructions = 0;  ///< 0: not counted
    std::string remark{};
};

/// Rounds in turns, each side first in every other one. Time is the thread's time on a processor.
Result Measure(const Pair& pair, int rounds);

/// Instructions that `work` takes in user space, as a debugger counts them. The same each time, but for
/// addresses.
uint64_t CountInstructions(const std::function<void()>& work);

}  // namespace Benchmarks
