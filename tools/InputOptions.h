/// @file
/// What the commands that read media may be told about their inputs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace Quorva::Tool {

struct InputOptions {
    bool allowOutside = false;
    std::optional<uint64_t> maxMemory;  ///< bytes
};

/// Adds the options to `command`.
/// @param options        outlives the command
/// @param defaultMemory  for the help
/// @param group          of the help's options; empty: the general one
void AddInputOptions(CLI::App& command, InputOptions& options, const char* defaultMemory,
                     const std::string& group = {});

/// To be called before the first input is opened. Limits FFmpeg's allocations, for the process: no single one
/// may take more than half of the memory.
/// @param defaultMemory  bytes, for lack of an option
void ApplyInputOptions(const InputOptions& options, uint64_t defaultMemory);

/// For what reads a stranger's file to look at it: 1 GiB.
inline constexpr uint64_t inspectionMemory = uint64_t{1} << 30;
/// Three quarters of what this process may use of the machine, in bytes.
uint64_t ConversionMemory();

/// Bytes of "512M", "1.5GiB", "2000000000"; K, M and G are powers of 1024 as KiB, MiB and GiB are.
/// @throws CLI::ValidationError  about `option`: that is no size, or not one from 16 MiB to 1 EiB.
uint64_t ParseByteSize(const char* option, const std::string& text);

}  // namespace Quorva::Tool
