/// @file
/// What the program's commands share: options, exit codes, and how a command joins the program.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace CLI {
class App;
}

namespace Quorva::Tool {

/// The program's exit codes.
enum ExitCode : int {
    EXIT_ALL_WELL = 0,
    EXIT_SOME_FAILED = 1,  ///< some file failed, or the output could not be written; the rest was done
    EXIT_USAGE = 2,        ///< the command line is wrong; nothing was done
    EXIT_STOPPED = 130,    ///< somebody stopped it (Ctrl-C); what was begun is ended well
};

/// The options of all commands, and the command that the command line chose.
struct Program {
    int verbosity = 0;  ///< how often -v was given
    bool quiet = false;
    std::function<ExitCode(const Program&)> command;
};

/// Microseconds of "90", "1:30" or "1:30.5".
/// @throws CLI::ValidationError  about `option`: that is no time, or a negative one.
int64_t ParseTime(const char* option, const std::string& text);

/// Each adds one command to `app`; when the command line chooses it, `program.command` runs it.
void AddProbe(CLI::App& app, Program& program);
void AddFormats(CLI::App& app, Program& program);
void AddCodecs(CLI::App& app, Program& program);
void AddConvert(CLI::App& app, Program& program);
void AddDump(CLI::App& app, Program& program);
/// @param app  lives as long as the command
void AddHelp(CLI::App& app, Program& program);
/// @return  whether JSON is wanted
std::shared_ptr<bool> AddDoctor(CLI::App& app);

}  // namespace Quorva::Tool
