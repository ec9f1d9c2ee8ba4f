#include "tools/IsolationFlags.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <string>
#include <thread>

namespace Quorva::Tool {

namespace {

constexpr auto GROUP = "Isolation";

std::chrono::milliseconds ParseSeconds(const std::string& text)
{
    double seconds = -1;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, seconds);
    if (error != std::errc() || rest != end || !(seconds >= 0 && seconds <= 1e9))
        throw CLI::ValidationError("--timeout",
                                   fmt::format("invalid number of seconds '{}' (examples: 60, 0.5)", text));
    return std::chrono::milliseconds(std::max<int64_t>(static_cast<int64_t>(seconds * 1000), seconds > 0));
}

}  // namespace

void AddIsolation(CLI::App& command, IsolationOptions& options, InputOptions& input, IsolationFlags flags,
                  const char* defaultMemory)
{
    const size_t cores = std::max(std::thread::hardware_concurrency(), 1U);
    options.jobs = flags == IsolationFlags::Jobs ? cores : 1;
    if (flags == IsolationFlags::Jobs)
        command.add_option("--jobs", options.jobs, "Files at a time (default: one per core)")
            ->type_name("NUMBER")
            ->check(CLI::Range(1, 1024))
            ->group(GROUP);
    command
        .add_option_function<std::string>(
            "--timeout", [&](const std::string& text) { options.timeout = ParseSeconds(text); },
            "Give up on a file that makes no progress for so many seconds (default: 60); 0: never")
        ->type_name("SECONDS")
        ->group(GROUP);
    AddInputOptions(command, input, defaultMemory, GROUP);
    command
        .add_option_function<std::string>(
            "--isolate", [&](const std::string& text) { options.isolate = text == "yes"; },
            "no: read files in this process, without limits and sandbox, for debuggers (default: yes)")
        ->type_name("WORD")
        ->check(CLI::IsMember({"yes", "no"}))
        ->group(GROUP);
}

void ApplyIsolation(IsolationOptions& options, const InputOptions& input, uint64_t defaultMemory)
{
    ApplyInputOptions(input, defaultMemory);
    options.allowOutside = input.allowOutside;
    options.maxMemory = input.maxMemory.value_or(defaultMemory);
}

void AddFileList(CLI::App& command, FileListOptions& options)
{
    command
        .add_option("FILE", options.arguments,
                    "Files, pipes, and folders whose files are taken one by one; - for standard input")
        ->type_name("");
    command
        .add_option("--files-from", options.namesFrom,
                    "Take further names from this file, one a line; - for standard input")
        ->type_name("FILE");
    command.add_flag("--null", options.nullBetween,
                     "Names in that file end with a zero byte, as find -print0 has it");
}

void CheckFileList(const FileListOptions& options)
{
    if (options.arguments.empty() && options.namesFrom.empty())
        throw CLI::RequiredError("FILE");
    if (options.namesFrom == "-" && std::ranges::find(options.arguments, "-") != options.arguments.end())
        throw CLI::ValidationError("--files-from", "standard input can't be both a list and a file");
}

}  // namespace Quorva::Tool
