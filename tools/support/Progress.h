/// @file
/// How far a run over many files has come.
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

namespace Quorva::Tool {

/// A bar on the terminal's last line, gone with the object. Without a terminal, or for a single step, nothing
/// is ever shown.
class Progress {
public:
    /// @param wanted  false: show nothing anywhere
    Progress(size_t steps, bool wanted);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    /// Says that the step named `name` begins. Drawn at most ten times a second, the first one at once.
    void Begin(std::string_view name);

private:
    const bool visible;
    const size_t steps;
    size_t begun = 0;
    std::chrono::steady_clock::time_point due{};
};

}  // namespace Quorva::Tool
