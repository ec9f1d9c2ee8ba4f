#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "tools/Command.h"
#include "tools/Help.h"
#include "tools/Launcher.h"
#include "tools/support/Console.h"
#include "tools/support/Logging.h"
#include "tools/support/Suggest.h"
#include "tools/support/Text.h"
#include "tools/support/Versions.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

namespace Quorva::Tool {

namespace {

std::string VersionLines()
{
    std::string text =
        fmt::format("tessadrin {0}\nlibTessadrin {0}\nFFmpeg {1}", TESSADRIN_VERSION, av_version_info());
    for (const LibraryVersion& library : FFmpegVersions())
        text += fmt::format("\n  lib{:<11} built with {:<11} running {}", library.name, library.built,
                            library.running);
    return text;
}

/// Why the command line can't be understood; names the nearest command or option where it was a slip.
std::string Complaint(const CLI::App& app, const CLI::ParseError& error)
{
    const auto chosen = app.get_subcommands();
    const CLI::App& place = chosen.empty() ? app : *chosen.front();
    std::vector<std::string> words = app.remaining();
    if (!chosen.empty())
        std::ranges::copy(place.remaining(), std::back_inserter(words));
    if (words.empty())
        return error.what();
    std::vector<std::string> names;
    if (!words.front().starts_with('-')) {
        if (!chosen.empty())
            return error.what();
        for (const CLI::App* command : app.get_subcommands(nullptr))
            names.push_back(command->get_name());
        return fmt::format("no command '{}'{}", words.front(), DidYouMean(words.front(), names));
    }
    for (const CLI::App* from : {&app, &place})
        for (const CLI::Option* option : from->get_options())
            for (const std::string& name : option->get_lnames())
                names.push_back("--" + name);
    return fmt::format("no option '{}'{}", words.front(), DidYouMean(words.front(), names));
}

int UsageFailure(const CLI::App& app, const CLI::ParseError& error)
{
    WriteComplaint("tessadrin: " + Complaint(app, error));
    const auto chosen = app.get_subcommands();
    WriteLine(fmt::format("`tessadrin help{}` tells what there is.",
                          chosen.empty() ? "" : " " + chosen.front()->get_name()));
    return EXIT_USAGE;
}

/// The arguments as CLI11 wants them, last first.
std::vector<std::string> Arguments(int argc, char** argv)
{
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    for (std::string& word : words)
        if (word.starts_with('[') && word.ends_with(']'))
            word.insert(0, "./");  // CLI11 takes [a,b] for a list, even where it is a file's name
    std::ranges::reverse(words);
    return words;
}

int Run(int argc, char** argv)
{
    Program program;
    CLI::App app("Media files as the pipeline sees them.", "tessadrin");
    app.formatter(MakeHelpFormat());
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("-V,--version", VersionLines,
                         "Print the versions of the program and of FFmpeg, and exit");
    app.add_flag_function(
        "-v,--verbose", [&program](int64_t count) { program.verbosity = static_cast<int>(count); },
        "Say more: -v where and why something failed, and FFmpeg's errors; -vv its warnings; "
        "-vvv information, and so on to -vvvvv");
    app.add_flag("-q,--quiet", program.quiet, "No lines about failures and no progress: the exit code tells");
    app.footer(
        "Exit codes: 0 all is well, 1 some file failed, 2 the command line is wrong, 130 stopped by "
        "Ctrl-C.\n\n"
        "Examples:\n"
        "  tessadrin probe film.mkv                what is in it\n"
        "  tessadrin convert film.mkv film.mp4     another container, encoded anew only where needed\n"
        "  tessadrin help convert                  all that a command can do");
    AddProbe(app, program);
    AddConvert(app, program);
    AddFormats(app, program);
    AddCodecs(app, program);
    AddDump(app, program);
    AddDoctor(app);  // for the help: it runs elsewhere
    AddHelp(app, program);
    try {
        app.parse(Arguments(argc, argv));
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : UsageFailure(app, error);
    }
    StartLogging(argv[0], program.verbosity);
    return program.command(program);
}

}  // namespace

}  // namespace Quorva::Tool

int tessadrin_main(int argc, char** argv) { return Quorva::Tool::Run(argc, argv); }
