#include "tools/Probe.h"

#include "tools/Command.h"
#include "tools/IsolationFlags.h"

#include <CLI/CLI.hpp>

namespace Quorva::Tool {

void AddProbe(CLI::App& app, Program& program)
{
    const auto options = std::make_shared<ProbeOptions>();
    CLI::App* command = app.add_subcommand("probe", "Tell what media files are and what is in them");
    AddFileList(*command, options->files);
    CLI::Option* packets =
        command->add_flag("--packets", options->packets, "Print every packet, times in microseconds");
    CLI::Option* count = command->add_flag("--count", options->count, "Count packets and their bytes");
    CLI::Option* json =
        command->add_flag("--json", options->json, "Print one JSON document (probe.schema.json)");
    CLI::Option* table =
        command->add_flag("--table", options->table, "Print one line for each file, packets counted");
    CLI::Option* lines = command->add_flag(
        "--json-lines", options->jsonLines,
        "Print a line of JSON for each file as soon as it is known: what --json has in \"files\"");
    packets->excludes(count)->excludes(table);
    json->excludes(table);
    lines->excludes(table)->excludes(json);
    command
        ->add_option("--resume", options->files.resume,
                     "Leave out the files that this output of --json-lines has; an incomplete last line of "
                     "it doesn't count")
        ->type_name("FILE")
        ->needs(lines);
    command->add_flag_callback(
        "--unordered", [options] { options->isolation.ordered = false; },
        "Show files as they are ready, not in the order in which they are named");
    AddIsolation(*command, options->isolation, options->input, IsolationFlags::Jobs, "1GiB");
    options->isolation.patience = std::chrono::milliseconds(1000);
    options->isolation.grace = std::chrono::milliseconds(300);
    command->footer(
        "Examples:\n"
        "  tessadrin probe film.mkv                        container, streams, tags, chapters\n"
        "  tessadrin probe --table Films                   a line for each file in a folder\n"
        "  tessadrin probe --count film.mkv                read to the end: packets and bytes\n"
        "  tessadrin probe --json film.mkv | jq .files     for programs (probe.schema.json)\n"
        "  find / -name '*.mp4' -print0 | tessadrin probe --json-lines --files-from - --null >> all.jsonl");
    command->callback([options, &program] {
        CheckFileList(options->files);
        ApplyIsolation(options->isolation, options->input, inspectionMemory);
        program.command = [options](const Program& chosen) { return RunProbe(*options, chosen); };
    });
}

}  // namespace Quorva::Tool
