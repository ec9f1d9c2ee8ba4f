/// @file
/// Stops what FFmpeg does on another thread: by a flag, or at a time.
///
///     static constinit Proc::Cancellation cancellation;  // a signal handler may use it
///     cancellation.SetDeadline(std::chrono::seconds(30));
///     context->interrupt_callback = cancellation.GetInterruptCallback();
///     Proc::GuardedIO io(stream, Proc::GuardedIO::SIZE, failure, cancellation);
///
/// FFmpeg asks the callback wherever it sleeps, polls, or works through many packets, and GuardedIO asks
/// before each call of its stream. Code that never reads and never polls, such as one call of a decoder,
/// isn't stopped, and neither is a stream that blocks: such a stream has to ask IsStopRequested() itself.
///
/// Once stopped, FFmpeg's functions return AVERROR_EXIT, or an error of their own where they replace the one
/// that they received; `av_read_frame_fixed` returns AVERROR_EXIT in both cases. All objects stay valid: free
/// them as after any error. An input can be used again after Reset(), from an undefined position: seek first.
/// An output to which GuardedIO has refused bytes is incomplete and can't be finished.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Quorva::Proc {

/// A request to stop, and a deadline after which one is assumed.
///
/// Every function may be called by any thread and by signal handlers, at any time: none locks or allocates.
/// IsStopRequested() costs an atomic read, and reads the clock as well where a deadline is set. The object
/// must outlive everything that it was given to. It needs no initialisation at run time (`constinit`).
class TESSADRIN_API Cancellation {
public:
    /// Of the deadline: goes on whatever the time of day is set to.
    using Clock = std::chrono::steady_clock;

    constexpr Cancellation() noexcept = default;
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    /// Stops everything that is connected to this object, until Reset().
    void RequestStop() noexcept;
    /// Requests the stop at `time`, replacing an earlier deadline. A time in the past stops at once.
    void SetDeadline(Clock::time_point time) noexcept;
    /// Requests the stop after `time` from now.
    void SetDeadline(Clock::duration time) noexcept;
    /// Takes the deadline back. A stop by RequestStop() stays.
    void ClearDeadline() noexcept;
    /// Takes back the request and the deadline.
    void Reset() noexcept;

    /// Returns whether RequestStop() was called or the deadline has passed.
    bool IsStopRequested() const noexcept;
    /// Returns the callback for `AVFormatContext::interrupt_callback` and for `avio_open2`. Set it before the
    /// context is opened: contexts that FFmpeg opens for it copy the callback.
    AVIOInterruptCB GetInterruptCallback() const noexcept;

private:
    static constexpr int64_t NEVER = INT64_MAX;

    std::atomic<int64_t> deadline = NEVER;  ///< the clock's ticks
    std::atomic<bool> stop = false;
    static_assert(std::atomic<int64_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
                  "signal handlers write these");
};

}  // namespace Quorva::Proc
