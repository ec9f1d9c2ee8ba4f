/// @file
/// What the commands that read media may be told about their inputs.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace Quorva::Tool {

struct InputOptions {
    bool allowOutside = false;
};

/// Adds the options to `command`.
/// @param options  outlives the command
/// @param group    of the help's options; empty: the general one
void AddInputOptions(CLI::App& command, InputOptions& options, const std::string& group = {});

/// To be called before the first input is opened.
void ApplyInputOptions(const InputOptions& options);

}  // namespace Quorva::Tool
