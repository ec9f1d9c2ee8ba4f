/// @file
/// Ctrl-C, and its like, as a wish that the work ends well.
#pragma once

#include "Proc/Wrappers/Tessadrin/Tessadrin.Cancellation.h"

namespace Quorva::Tool {

/// While an object lives, SIGINT, SIGTERM and SIGHUP don't end the process. One object at a time.
class Interruption {
public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// Whether the work is to be brought to its end.
    static bool IsWanted() noexcept;
    /// Whether it is to be dropped as it is: somebody asked twice.
    static bool IsUrgent() noexcept;
    /// Requests a stop from the first signal on; for FFmpeg's callbacks and for streams.
    static const Proc::Cancellation& GetCancellation() noexcept;
};

}  // namespace Quorva::Tool
