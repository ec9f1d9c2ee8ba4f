#include "tools/InputOptions.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tools/support/Failure.h"
#include "tools/support/FurtherFiles.h"

#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <climits>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace Quorva::Tool {

namespace {

constexpr uint64_t smallestBudget = 16 << 20;  // bytes; FFmpeg's own buffers need some
constexpr auto largestBudget = static_cast<double>(1ull << 60);

/// The limit of this process's control group, or of one around it, in bytes; UINT64_MAX: none.
uint64_t ControlGroupMemory()
{
    uint64_t limit = UINT64_MAX;
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        if (!line.starts_with("0::/"))
            continue;
        for (std::filesystem::path group = line.substr(3);; group = group.parent_path()) {
            std::ifstream file("/sys/fs/cgroup" + group.native() + "/memory.max");
            if (uint64_t bytes = 0; file >> bytes)  // "max" is no number
                limit = std::min(limit, bytes);
            if (!group.has_relative_path())
                break;
        }
    }
    return limit;
}

uint64_t UnitSize(std::string_view unit)
{
    static constexpr std::pair<std::string_view, int> rows[] = {
        {"",    0 },
        {"K",   10},
        {"KiB", 10},
        {"M",   20},
        {"MiB", 20},
        {"G",   30},
        {"GiB", 30},
    };
    for (const auto& [name, shift] : rows)
        if (name == unit)
            return uint64_t{1} << shift;
    return 0;
}

}  // namespace

uint64_t ConversionMemory()
{
    const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
    const uint64_t machine = pages > 0 && pageSize > 0
                                 ? static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageSize)
                                 : UINT64_MAX;
    return std::max(std::min(machine, ControlGroupMemory()) / 4 * 3, smallestBudget);
}

uint64_t ParseByteSize(const char* option, const std::string& text)
{
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const uint64_t unit = UnitSize({rest, end});
    if (error != std::errc() || unit == 0)
        throw CLI::ValidationError(
            option, fmt::format("invalid size '{}' (examples: 512M, 1.5GiB, 2000000000)", text));
    const double bytes = number * static_cast<double>(unit);
    if (!(bytes >= smallestBudget && bytes <= largestBudget))
        throw CLI::ValidationError(option, fmt::format("'{}' is not between 16 MiB and 1 EiB", text));
    return static_cast<uint64_t>(bytes);
}

void AddInputOptions(CLI::App& command, InputOptions& options, const char* defaultMemory,
                     const std::string& group)
{
    CLI::Option* const added[] = {
        command.add_flag("--allow-outside", options.allowOutside,
                         "Let a playlist name files outside its own folder; default: only in and below it"),
        command
            .add_option_function<std::string>(
                "--max-memory",
                [&options](const std::string& text) {
                    options.maxMemory = ParseByteSize("--max-memory", text);
                },
                fmt::format("Refuse what takes more memory: 512M, 4GiB; default: {}", defaultMemory))
            ->type_name("SIZE"),
    };
    for (CLI::Option* option : added)
        if (!group.empty())
            option->group(group);
}

void ApplyInputOptions(const InputOptions& options, uint64_t defaultMemory)
{
    FurtherFilesPolicy policy = FurtherFiles::GetPolicy();
    policy.allowOutside = options.allowOutside;
    FurtherFiles::SetPolicy(policy);

    // Above INT_MAX, FFmpeg's own limit is the one that is met.
    const uint64_t budget = options.maxMemory.value_or(defaultMemory);
    av_max_alloc(std::min<uint64_t>(budget / 2, INT_MAX));
    SetMemoryBudget(budget / 2 < INT_MAX ? budget : 0);
}

}  // namespace Quorva::Tool
