/// @file
/// The command line described in other forms than `--help`: all from the commands themselves.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace Quorva::Tool {

/// The manual page, in roff.
std::string ManPage(const CLI::App& app);

/// Completion scripts for the shells.
std::string BashCompletion(const CLI::App& app);
std::string ZshCompletion(const CLI::App& app);
std::string FishCompletion(const CLI::App& app);

}  // namespace Quorva::Tool
