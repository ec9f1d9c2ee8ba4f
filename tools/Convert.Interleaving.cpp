#include "tools/Convert.Interleaving.h"

#include <algorithm>

namespace Quorva::Tool {

InterleavingQueue::InterleavingQueue(const std::vector<bool>& awaited)
{
    for (const bool waits : awaited)
        newest.push_back(waits ? INT64_MIN : INT64_MAX);
}

void InterleavingQueue::Add(size_t stream, int64_t time, uint64_t size)
{
    newest[stream] = std::max(newest[stream], time);
    latest = std::max(latest, time);
    packets.push_back({time, size});
    bytes += size;
    const int64_t written = std::max(std::ranges::min(newest), latest - LONGEST);
    // Near enough to the order of times that those behind a later packet matter little.
    while (!packets.empty() && packets.front().time <= written) {
        bytes -= packets.front().size;
        packets.pop_front();
    }
}

void InterleavingQueue::Clear()
{
    packets.clear();
    bytes = 0;
}

}  // namespace Quorva::Tool
