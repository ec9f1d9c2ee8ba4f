#include "tools/Command.h"

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

namespace Quorva::Tool {

int64_t ParseTime(const char* option, const std::string& text)
{
    int64_t time = 0;
    if (av_parse_time(&time, text.c_str(), 1) < 0 || time < 0)
        throw CLI::ValidationError(option, fmt::format("'{}' is no time: 90, 1:30 and 1:30.5 are", text));
    return time;
}

std::shared_ptr<bool> AddDoctor(CLI::App& app)
{
    auto json = std::make_shared<bool>(false);
    CLI::App* command = app.add_subcommand(
        "doctor", "Tell whether the library can be loaded with this FFmpeg, and what it lacks");
    command->add_flag("--json", *json, "Print one JSON document");
    command->footer(
        "Exit codes: 0 it can be loaded, 1 it can't.\n\n"
        "Examples:\n"
        "  tessadrin doctor                           for people\n"
        "  tessadrin doctor --json | jq .lacking      for programs (doctor.schema.json)");
    command->callback([json] {});  // keeps it as long as the command lives
    return json;
}

}  // namespace Quorva::Tool
