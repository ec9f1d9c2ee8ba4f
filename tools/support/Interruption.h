/// @file
/// Ctrl-C, and its like, as a request that the work ends well.
#pragma once

#include "Proc/Wrappers/Tessadrin/Tessadrin.Cancellation.h"

#include <chrono>
#include <optional>
#include <thread>

namespace Quorva::Tool {

/// While an object lives, SIGINT, SIGTERM and SIGHUP don't end the process. One object at a time.
///
/// The first signal requests a stop: reading ends, and what has been read is finished. After the second one
/// the work is dropped. Where neither is heard, as in a call of the system that blocks, a thread of the
/// object ends the process with exit code 130.
class Interruption {
public:
    using Milliseconds = std::chrono::milliseconds;

    /// @param discard   removes unfinished files before the process ends, on the object's thread; nothing
    /// else
    ///                  runs in it afterwards. Null: there are none
    /// @param patience  how long after the first signal the process is ended; nothing: only after the second
    explicit Interruption(void (*discard)() = nullptr, std::optional<Milliseconds> patience = std::nullopt);
    /// Without the thread, for processes that fork: after the first signal a timer of the system ends the
    /// process, unless ShowLife() is called every second.
    struct Unwatched {
        void (*discard)() = nullptr;  ///< as above, but called by a signal handler
    };
    explicit Interruption(Unwatched unwatched);
    /// Starts that timer again. For the thread that has the object.
    static void ShowLife() noexcept;
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// Whether the work is to end. Stays so until the next object begins.
    static bool IsWanted() noexcept;
    /// Whether what is held back, as by encoders, is to be dropped: finishing it takes too long (0.4 seconds
    /// of processor time, or 3 seconds), or there was a second signal.
    static bool IsOverdue() noexcept;
    /// Whether all is to be dropped: there was a second signal.
    static bool IsUrgent() noexcept;

    /// Makes SIGUSR1 such a wish too, from now on, and keeps those that come before an object lives: for
    /// processes that get them from their parent.
    static void AcceptPrivateStop() noexcept;
    /// Requests a stop from the first signal on; for inputs.
    static const Proc::Cancellation& GetCancellation() noexcept;
    /// Requests a stop from the second signal on; for outputs.
    static const Proc::Cancellation& GetUrgentCancellation() noexcept;

private:
    void TakeSignals();

    std::jthread watching;
};

}  // namespace Quorva::Tool
