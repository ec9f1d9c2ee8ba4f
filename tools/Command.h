/// @file
/// What the program's commands share: options, exit codes, and how a command joins the program.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace Quorva::Tool {

/// The program's exit codes.
enum ExitCode : int {
    EXIT_ALL_WELL = 0,
    EXIT_SOME_FAILED = 1,  ///< some file failed, or the output could not be written; the rest was done
    EXIT_USAGE = 2,        ///< the command line is wrong; nothing was done
};

/// The options of all commands, and the command that the command line chose.
struct Program {
    int verbosity = 0;  ///< how often -v was given
    bool quiet = false;
    std::function<ExitCode(const Program&)> command;
};

/// Each adds one command to `app`; when the command line chooses it, `program.command` runs it.
void AddProbe(CLI::App& app, Program& program);
void AddFormats(CLI::App& app, Program& program);
void AddCodecs(CLI::App& app, Program& program);
void AddDump(CLI::App& app, Program& program);

}  // namespace Quorva::Tool
