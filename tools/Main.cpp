#include "tools/Command.h"
#include "tools/support/Console.h"
#include "tools/support/Json.h"
#include "tools/support/Logging.h"
#include "tools/support/Suggest.h"
#include "tools/support/Text.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace Quorva::Tool {

namespace {

std::string VersionLines()
{
    std::string text = fmt::format("tessadrin {}\nFFmpeg {}", TESSADRIN_VERSION, av_version_info());
    const Json tool = ToolJson();
    for (const auto& [name, version] : tool["ffmpeg"].items())
        text += fmt::format("\n  lib{:<10} {}", name, version.get<std::string>());
    return text;
}

/// What somebody may have meant who wrote a command or an option that isn't there; or nothing.
std::string Suggestion(const CLI::App& app, const CLI::ParseError& error)
{
    if (!dynamic_cast<const CLI::ExtrasError*>(&error) && !dynamic_cast<const CLI::RequiredError*>(&error))
        return {};
    const auto chosen = app.get_subcommands();
    const CLI::App& place = chosen.empty() ? app : *chosen.front();
    std::vector<std::string> names;
    for (const CLI::App* from : {&app, &place})
        for (const CLI::Option* option : from->get_options())
            for (const std::string& name : option->get_lnames())
                names.push_back("--" + name);
    if (chosen.empty())
        for (const CLI::App* command : app.get_subcommands(nullptr))
            names.push_back(command->get_name());
    for (const CLI::App* from : {&app, &place})
        for (const std::string& word : from->remaining())
            if (const std::string nearest = NearestName(word, names); !nearest.empty())
                return fmt::format("; instead of '{}', did you mean '{}'?", word, nearest);
    return {};
}

int UsageFailure(const CLI::App& app, const CLI::ParseError& error)
{
    WriteLine(fmt::format("tessadrin: {}{}", error.what(), Suggestion(app, error)));
    WriteLine("tessadrin --help, or tessadrin COMMAND --help, tells what there is.");
    return EXIT_USAGE;
}

int Run(int argc, char** argv)
{
    Program program;
    CLI::App app("Media files as the pipeline sees them.", "tessadrin");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", VersionLines,
                         "Print the versions of the program and of FFmpeg, and exit");
    app.add_flag("-v,--verbose", program.verbosity,
                 "Say more: -v where and why something failed, and FFmpeg's errors; -vv its warnings; "
                 "-vvv information, and so on to -vvvvv");
    app.add_flag("-q,--quiet", program.quiet, "No lines about failures and no progress: the exit code tells");
    app.footer("Exit codes: 0 all is well, 1 some file failed, 2 the command line is wrong.");
    AddProbe(app, program);
    AddFormats(app, program);
    AddCodecs(app, program);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : UsageFailure(app, error);
    }
    StartLogging(argv[0], program.verbosity);
    return program.command(program);
}

}  // namespace

}  // namespace Quorva::Tool

int main(int argc, char** argv)
{
    using namespace Quorva::Tool;
    // Whoever started us may have had it ignored; `| head` is to end the program, not to make it complain.
    std::signal(SIGPIPE, SIG_DFL);
    UseUtf8();
    int code = EXIT_SOME_FAILED;
    try {
        code = Run(argc, argv);
    } catch (const std::exception& e) {
        WriteLine(std::string("tessadrin: ") + e.what());
        code = EXIT_SOME_FAILED;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        WriteLine(std::string("tessadrin: can't write the output: ") + std::strerror(errno));
        code = EXIT_SOME_FAILED;
    }
    return code;
}
