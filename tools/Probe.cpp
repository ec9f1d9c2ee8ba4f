#include "tools/Probe.h"

#include "tools/Command.h"
#include "tools/support/Console.h"
#include "tools/support/FileWalk.h"
#include "tools/support/Progress.h"
#include "tools/support/StreamDecoder.h"

#include <CLI/CLI.hpp>

namespace Quorva::Tool {

namespace {

struct ProbeOptions {
    std::vector<std::string> files;
    bool packets = false;
    bool count = false;
    bool json = false;
    bool table = false;
};

/// Reads all packets, up to where that fails.
void ReadPackets(OpenedInput& input, FileReport& report, ProbeOutput& output, bool show)
{
    const PacketPointer packet(Proc::CreatePacket(0));
    PacketCount& total = report.count.emplace();
    while (true) {
        try {
            if (!input.ReadPacket(packet.get()))
                break;
        } catch (...) {
            report.failure = CurrentFailure(report.path);
            break;
        }
        DescribeNewStreams(input, report);
        const auto size = static_cast<uint64_t>(packet->size);
        PacketCount& count = report.streams[static_cast<size_t>(packet->stream_index)].count;
        for (PacketCount* sum : {&total, &count}) {
            ++sum->packets;
            sum->bytes += size;
        }
        // Outside of the try block: a full disk below the output is no failure of this file.
        if (show)
            output.Packet(DescribePacket(input, *packet));
        av_packet_unref(packet.get());
    }
}

FileReport ProbeFile(const WalkedFile& file, const ProbeOptions& options, ProbeOutput& output)
{
    FileReport report;
    report.path = file.path;
    if (!file.folderError.empty()) {
        Failure& failure = report.failure.emplace();
        failure.kind = FailureKind::Unreadable;
        failure.message = failure.description = "can't read the folder: " + file.folderError;
        return report;
    }
    std::unique_ptr<OpenedInput> input;
    try {
        const DetectedInput detected = DetectInput(file.path);
        report.size = detected.size;
        report.result = detected.result;
        report.detected = true;
        input = std::make_unique<OpenedInput>(detected);
        if (IsAnimation(*input->Get())) {
            report.animationRate = ReadAnimationRate(*input);
            input = std::make_unique<OpenedInput>(detected);  // at its beginning again
        }
        DescribeFile(*input, report);
        report.opened = true;
    } catch (...) {
        report.failure = CurrentFailure(file.path);
        return report;
    }
    if (options.packets)
        output.BeginPackets(report);
    if (options.packets || options.count || options.table)
        ReadPackets(*input, report, output, options.packets);
    if (!report.failure)
        try {
            input->CheckStreams();
        } catch (...) {
            report.failure = CurrentFailure(file.path);
        }
    return report;
}

ExitCode RunProbe(const ProbeOptions& options, const Program& program)
{
    const bool details = program.verbosity > 0;
    const std::unique_ptr<ProbeOutput> output = options.json    ? MakeJsonOutput(details)
                                                : options.table ? MakeTableOutput()
                                                                : MakeTextOutput(options.packets);
    const FileWalk walk = WalkFiles(options.files);
    ExitCode code = EXIT_ALL_WELL;
    output->Begin();
    {
        Progress progress(walk.files.size(), !program.quiet);
        for (const WalkedFile& file : walk.files) {
            progress.Begin(file.path);
            const FileReport report = ProbeFile(file, options, *output);
            output->File(report);
            if (!report.failure)
                continue;
            code = EXIT_SOME_FAILED;
            if (!program.quiet && (details || !output->ShowsFailures()))
                PrintFailure(report.path, *report.failure, details);
        }
    }
    output->End();
    if (!program.quiet)
        for (const std::string& folder : walk.emptyFolders)
            WriteLine(folder + ": no files in this folder");
    return code;
}

}  // namespace

void AddProbe(CLI::App& app, Program& program)
{
    const auto options = std::make_shared<ProbeOptions>();
    CLI::App* command = app.add_subcommand("probe", "Tell what media files are and what is in them");
    command
        ->add_option("FILE", options->files,
                     "Files, pipes, and folders whose files are taken one by one; - for standard input")
        ->required()
        ->type_name("");
    CLI::Option* packets =
        command->add_flag("--packets", options->packets, "Print every packet, times in microseconds");
    CLI::Option* count = command->add_flag("--count", options->count, "Count packets and their bytes");
    CLI::Option* json =
        command->add_flag("--json", options->json, "Print one JSON document (probe.schema.json)");
    CLI::Option* table =
        command->add_flag("--table", options->table, "Print one line for each file, packets counted");
    packets->excludes(count)->excludes(table);
    json->excludes(table);
    command->footer(
        "Examples:\n"
        "  tessadrin probe film.mkv                        container, streams, tags, chapters\n"
        "  tessadrin probe --table Films                   a line for each file in a folder\n"
        "  tessadrin probe --count film.mkv                read to the end: packets and bytes\n"
        "  tessadrin probe --json film.mkv | jq .files     for programs (probe.schema.json)");
    command->callback([options, &program] {
        program.command = [options](const Program& chosen) { return RunProbe(*options, chosen); };
    });
}

}  // namespace Quorva::Tool
