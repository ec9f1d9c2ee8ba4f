/// @file
/// What a worker shares with the process that watches it.
#pragma once

#include <atomic>
#include <cstdint>

namespace Quorva::Tool {

/// A page that worker and parent both map. The parent believes nothing of it but that a change is a change.
struct WorkerState {
    std::atomic<uint64_t> progress;     ///< grows with every step; a worker whose count stands still hangs
    std::atomic<uint32_t> outOfMemory;  ///< not 0: the last thing that failed was an allocation
};
static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free,
              "shared by processes, and written in signal handlers");

namespace Details {
/// Null outside of workers. Set once, before the first file is read.
inline constinit WorkerState* workerState = nullptr;
}  // namespace Details

/// Says that the work advances: a packet read, a frame decoded or encoded, bytes written, a read that gets
/// further into the input than all before it. Any thread may call it at any rate; it takes no lock
/// and does nothing outside of workers.
inline void ReportProgress() noexcept
{
    if (WorkerState* const state = Details::workerState)
        state->progress.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace Quorva::Tool
