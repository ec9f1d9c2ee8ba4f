/// @file
/// Ctrl-C, and its like, as a wish that the work ends well.
#pragma once

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

    /// Makes SIGUSR1 such a wish too, from now on, and keeps those that come before an object lives: for
    /// processes that get them from their parent.
    static void AcceptPrivateStop() noexcept;
};

}  // namespace Quorva::Tool
