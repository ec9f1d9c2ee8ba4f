/// @file
/// The command line described: for `--help` and in other forms, all from the commands themselves.
#pragma once

#include <memory>
#include <string>

namespace CLI {
class App;
class Formatter;
class Option;
}  // namespace CLI

namespace Quorva::Tool {

/// How `--help` looks: lines of at most 80 columns.
std::shared_ptr<CLI::Formatter> MakeHelpFormat();

/// What an option's value is called in descriptions, "TIME"; empty when it takes none.
std::string ValueOf(const CLI::Option& option);

/// The manual page, in roff.
std::string ManPage(const CLI::App& app);

/// Completion scripts for the shells.
std::string BashCompletion(const CLI::App& app);
std::string ZshCompletion(const CLI::App& app);
std::string FishCompletion(const CLI::App& app);

}  // namespace Quorva::Tool
