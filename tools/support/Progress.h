/// @file
/// How far a run over many files has come.
#pragma once

#include "tools/support/Failure.h"

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Quorva::Tool {

/// A bar on the terminal's last line, with files, rate, failures by kind and the time that is left; gone with
/// the object. Without a terminal, or for a single file, nothing is ever shown.
class Progress {
public:
    /// @param files   how many there are; nothing where that is not known
    /// @param wanted  false: show nothing anywhere
    Progress(std::optional<size_t> files, bool wanted);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    /// Says that the file named `name` begins. Drawn at most ten times a second, the first one at once.
    void Begin(std::string_view name);
    /// Says that a file has ended.
    void End(std::optional<FailureKind> failure);

private:
    std::string CountText() const;
    std::string RateText(std::chrono::steady_clock::time_point now) const;
    std::string FailuresText() const;

    const bool visible;
    const std::optional<size_t> files;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    size_t done = 0;
    std::map<std::string_view, size_t> failures;  ///< by the kind's name
    std::chrono::steady_clock::time_point due{};
};

}  // namespace Quorva::Tool
