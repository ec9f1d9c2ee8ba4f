// What probe does, file by file.
#include "tools/Probe.h"

#include "host/FoundationIO.h"
#include "tools/isolation/ReportProgress.h"
#include "tools/support/Console.h"
#include "tools/support/Interruption.h"
#include "tools/support/Progress.h"
#include "tools/support/StreamDecoder.h"

namespace Quorva::Tool {

namespace {

/// Reads all packets, up to where that fails.
void ReadPackets(OpenedInput& input, FileReport& report, ProbeOutput& output, bool show)
{
    const PacketPointer packet(Proc::CreatePacket(0));
    PacketCount& total = report.count.emplace();
    while (true) {
        try {
            if (!input.ReadPacket(packet.get())) {
                if (Interruption::IsWanted())
                    ThrowFFmpegFailure("not read to its end", AVERROR_EXIT);
                break;
            }
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

/// A worker's exit code: 0, or what says the failure's kind. 1 is that of an exception that came out.
int CodeOf(const std::optional<Failure>& failure)
{
    return failure ? 2 + static_cast<int>(failure->kind) : 0;
}

std::optional<FailureKind> KindOf(const FileResult& result)
{
    if (result.failure)
        return result.failure->kind;
    if (result.code == 0)
        return std::nullopt;
    return result.code >= 2 ? static_cast<FailureKind>(result.code - 2) : FailureKind::Internal;
}

class ProbeWork final : public IsolatedWork {
public:
    ProbeWork(const ProbeOptions& options, const Program& program)
        : options(options),
          quiet(program.quiet),
          details(program.verbosity > 0),
          files(options.files),
          output(options.json || options.jsonLines ? MakeJsonOutput(options.jsonLines, details)
                 : options.table                   ? MakeTableOutput()
                                                   : MakeTextOutput(options.packets)),
          progress(files.GetCount(), !quiet)
    {
    }

    ExitCode Run()
    {
        output->Begin();
        const bool complete = RunIsolated(*this, options.isolation);
        output->End();
        if (!quiet)
            for (const std::string& folder : files.GetEmptyFolders())
                WriteLine(folder + ": no files in this folder");
        return complete && !Interruption::IsWanted() ? code : EXIT_STOPPED;
    }

    NextFile Next(WalkedFile& file) override
    {
        try {
            return files.Next(file);
        } catch (const Core::IOException&) {  // of the list; what it has named so far is shown
            WriteComplaint("tessadrin: " + CurrentFailure({}).description);
            code = EXIT_SOME_FAILED;
            return NextFile::End;
        }
    }
    int GetWaitDescriptor() const override { return files.GetWaitDescriptor(); }

    int Process(size_t, const WalkedFile& file) override
    {
        const FileReport report = ProbeFile(file, options, *output);
        output->File(report);
        if (report.failure)
            Show(report.path, *report.failure);
        return CodeOf(report.failure);
    }

    void Begin(size_t, const WalkedFile& file) override
    {
        current = file.path;
        progress.Begin(file.path);
    }
    void Record(size_t, std::string_view bytes) override { output->Record(current, bytes); }
    void Done(size_t, const WalkedFile& file, const FileResult& result) override
    {
        std::optional<Failure> failure = result.failure;
        if (result.stopped) {
            failure.emplace().message = "stopped";
            failure->kind = FailureKind::Stopped;
        }
        output->EndFile(file.path, failure ? &*failure : nullptr);
        if (result.failure)
            Show(file.path, *result.failure);
        if (const auto kind = KindOf(result); kind || result.stopped)
            code = EXIT_SOME_FAILED;
        progress.End(KindOf(result));
    }

private:
    void Show(const std::string& path, const Failure& failure) const
    {
        if (!quiet && (details || !output->ShowsFailures()))
            PrintFailure(path, failure, details);
    }

    const ProbeOptions& options;
    const bool quiet;
    const bool details;
    FileList files;
    const std::unique_ptr<ProbeOutput> output;
    Progress progress;
    std::string current;  ///< path of the file that is shown
    ExitCode code = EXIT_ALL_WELL;
};

}  // namespace

void ProbeOutput::Record(const std::string&, std::string_view) {}
void ProbeOutput::EndFile(const std::string&, const Failure*) {}

ExitCode RunProbe(const ProbeOptions& options, const Program& program)
{
    std::unique_ptr<ProbeWork> work;
    try {
        work = std::make_unique<ProbeWork>(options, program);
    } catch (const Core::IOException&) {  // the lists of files; nothing was begun
        WriteComplaint("tessadrin: " + CurrentFailure({}).description);
        return EXIT_USAGE;
    }
    return work->Run();
}

}  // namespace Quorva::Tool
