#include "tools/Dump.h"

#include "tools/Command.h"
#include "tools/IsolationFlags.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"
#include "tools/support/OpenedInput.h"
#include "tools/support/OutputFiles.h"
#include "tools/support/ReadableText.h"
#include "tools/support/Text.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dumps.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <utility>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowFailure(const std::string& description, FailureKind kind)
{
    Proc::Details::Raise(Proc::ProcException() << TagDescription(description) << TagFailureKind(kind));
}

/// The streams that were asked for; or else the best picture and all subtitles.
std::vector<int> ChooseStreams(const OpenedInput& input, const DumpOptions& options)
{
    const int best = av_find_best_stream(input.Get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    std::vector<int> chosen;
    for (const int index : options.streams) {
        if (index < 0 || static_cast<unsigned>(index) >= input->nb_streams)
            ThrowFailure(fmt::format("no stream {}: there are {}", index, input->nb_streams),
                         FailureKind::NotFound);
        const AVMediaType kind = input->streams[index]->codecpar->codec_type;
        if (kind != AVMEDIA_TYPE_VIDEO && kind != AVMEDIA_TYPE_SUBTITLE)
            ThrowFailure(
                fmt::format("stream {} is {}, which has no pictures", index, Proc::GetMediaTypeName(kind)),
                FailureKind::Unsupported);
        if (std::ranges::find(chosen, index) == chosen.end())
            chosen.push_back(index);
    }
    if (!chosen.empty())
        return chosen;
    if (best >= 0)
        chosen.push_back(best);
    for (unsigned i = 0; i < input->nb_streams; ++i)
        if (input->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE)
            chosen.push_back(static_cast<int>(i));
    if (chosen.empty())
        ThrowFailure("no pictures and no subtitles in it", FailureKind::Unsupported);
    return chosen;
}

/// Dumps one file. Failures of single streams are shown at once, and the others go on.
class FileDump {
public:
    FileDump(const DumpOptions& options, const Program& program)
        : options(options), program(program), input(WithReadableText(DetectInput(options.file)))
    {
        const int64_t start = input->start_time == AV_NOPTS_VALUE ? 0 : input->start_time;
        // Not examined: where FFmpeg can't jump, everything is read, and passed over up to that time.
        if (options.at > 0)
            avformat_seek_file(input.Get(), -1, INT64_MIN, start + options.at, start + options.at, 0);
        for (unsigned i = 0; i < input->nb_streams && !options.packets; ++i)
            input->streams[i]->discard = AVDISCARD_ALL;
        bool plainName = true;
        for (const int index : ChooseStreams(input, options)) {
            AVStream& stream = *input->streams[index];
            stream.discard = AVDISCARD_DEFAULT;
            const bool plain = plainName && stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
            plainName &= !plain;
            Try([&] {
                streams.push_back(std::make_unique<StreamDump>(
                    stream, options, plain ? options.name : fmt::format("{}_stream{}", options.name, index),
                    start));
            });
        }
    }

    ExitCode Run()
    {
        const bool whole = Try([this] {
            ReadPackets();
            for (const auto& stream : streams)
                if (!stream->IsDone() && !Interruption::IsWanted())
                    stream->Decode(nullptr);
            input.CheckStreams();
        });
        int dumps = 0;
        for (const auto& stream : streams) {
            if (const std::string complaint = stream->GetComplaint(); !complaint.empty())
                Fail(complaint);
            dumps += stream->GetCount();
        }
        if (Interruption::IsWanted())
            return EXIT_STOPPED;
        if (whole && dumps == 0 && code == EXIT_ALL_WELL && !options.packets)
            Fail(options.at > 0 ? "nothing at or after " + DurationText(options.at)
                                : "nothing came out of it");
        return code;
    }

private:
    template <class Action>
    bool Try(Action action)
    {
        try {
            action();
            return true;
        } catch (...) {
            Show(CurrentFailure(options.file));
            return false;
        }
    }

    void Show(const Failure& failure)
    {
        code = EXIT_SOME_FAILED;
        if (!program.quiet)
            PrintFailure(options.file, failure, program.verbosity > 0);
    }

    void Fail(const std::string& message)
    {
        Failure failure;
        failure.message = message;
        Show(failure);
    }

    /// To the file's end, or until no stream needs more.
    void ReadPackets()
    {
        const auto done = [](const auto& stream) { return stream->IsDone(); };
        const PacketPointer packet(Proc::CreatePacket(0));
        while (!Interruption::IsWanted() && !std::ranges::all_of(streams, done) &&
               input.ReadPacket(packet.get())) {
            if (options.packets) {
                using Proc::operator<<;
                std::ostringstream line;
                line << packet.get();
                fmt::print("{}\n", line.str());
            }
            for (const auto& stream : streams)
                if (stream->GetIndex() == packet->stream_index && !stream->IsDone())
                    stream->Decode(packet.get());
            av_packet_unref(packet.get());
        }
    }

    const DumpOptions& options;
    const Program& program;
    OpenedInput input;
    std::vector<std::unique_ptr<StreamDump>> streams;
    ExitCode code = EXIT_ALL_WELL;
};

ExitCode DumpFile(const DumpOptions& options, const Program& program)
{
    try {
        return FileDump(options, program).Run();
    } catch (...) {
        if (!program.quiet)
            PrintFailure(options.file, CurrentFailure(options.file), program.verbosity > 0);
        return Interruption::IsWanted() ? EXIT_STOPPED : EXIT_SOME_FAILED;
    }
}

/// The one file, in a worker; the dumps come into being here.
class DumpWork final : public IsolatedWork {
public:
    DumpWork(const DumpOptions& options, const Program& program)
        : options(options), program(program), files(options.overwrite, false, OutputFiles::Links::Replace)
    {
    }

    ExitCode Run() { return RunIsolated(*this, options.isolation) ? code : EXIT_STOPPED; }

    NextFile Next(WalkedFile& file) override
    {
        if (std::exchange(given, true))
            return NextFile::End;
        file.path = options.file;
        return NextFile::File;
    }
    int Process(size_t, const WalkedFile&) override { return DumpFile(options, program); }
    void Done(size_t, const WalkedFile&, const FileResult& result) override
    {
        code = result.stopped || Interruption::IsWanted() ? EXIT_STOPPED
               : result.failure                           ? EXIT_SOME_FAILED
                                                          : static_cast<ExitCode>(result.code);
        if (result.failure && !program.quiet)
            PrintFailure(options.file, *result.failure, program.verbosity > 0);
    }

    Descriptor OpenOutput(size_t, const std::string& path) override
    {
        if (!path.starts_with(options.name) || !path.ends_with(".bmp") ||
            path.find('/', options.name.size()) != std::string::npos)
            return IsolatedWork::OpenOutput(0, path);
        return Descriptor(files.CreateDescriptor(path));
    }
    void CommitOutputs(size_t) override { files.Commit(); }

private:
    const DumpOptions& options;
    const Program& program;
    OutputFiles files;
    bool given = false;
    ExitCode code = EXIT_SOME_FAILED;
};

ExitCode RunDump(const DumpOptions& options, const Program& program)
{
    return DumpWork(options, program).Run();
}

}  // namespace

void AddDump(CLI::App& app, Program& program)
{
    const auto options = std::make_shared<DumpOptions>();
    CLI::App* command =
        app.add_subcommand("dump", "Write pictures and bitmap subtitles as BMP files, print text subtitles");
    command->add_option("FILE", options->file, "The file or pipe to decode; - for standard input")
        ->required()
        ->type_name("");
    command->add_option(
        "--name", options->name,
        "Begin of the files' names, with a folder if wanted (default: that of FILE, or stdin, here)");
    command->add_option("--count", options->count, "Dumps of each stream (default: 1)")
        ->check(CLI::PositiveNumber);
    command->add_option("--every", options->every, "Dump every Nth picture or subtitle only")
        ->check(CLI::PositiveNumber);
    command
        ->add_option_function<std::string>(
            "--at", [options](const std::string& text) { options->at = ParseTime("--at", text); },
            "Begin with what is shown at this time from the file's start: 90, 12.5 or 1:02:03.4")
        ->type_name("TIME");
    command
        ->add_option("--stream", options->streams,
                     "Stream to dump, by its number; may be repeated (default: the best picture and all "
                     "subtitles)")
        ->allow_extra_args(false);
    command
        ->add_option("--hardware", options->hardware,
                     "Send every picture to such a device and fetch it back first: opencl, vaapi, cuda ...")
        ->type_name("TYPE");
    command->add_flag("--overwrite", options->overwrite, "Replace files that exist");
    command->add_flag("--packets", options->packets, "Print every packet that is read, times in ticks");
    AddIsolation(*command, options->isolation, options->input, IsolationFlags::OneFile, "1GiB");
    options->isolation.patience = std::chrono::milliseconds(1000);
    options->isolation.grace = std::chrono::milliseconds(300);
    options->isolation.discard = OutputFiles::DiscardAll;
    command->footer(
        "Files are named NAME_000_key=1.bmp and so on, key=1 for key frames; those of further streams\n"
        "NAME_streamN_000_key=0.bmp. Dots along the right and the bottom edge mark where the picture ends.\n"
        "FILE is read until every stream has its dumps, or to its end.\n\n"
        "Examples:\n"
        "  tessadrin dump film.mkv                                  the first picture and the first "
        "subtitles\n"
        "  tessadrin dump film.mkv --at 1:02:03 --name /tmp/scene   the picture at that time\n"
        "  tessadrin dump film.mkv --every 250 --count 20           20 pictures, one of each 250\n"
        "  tessadrin dump film.mkv --stream 3 --count 100           100 subtitles of stream 3");
    command->callback([options, &program] {
        options->isolation.sandbox.devices = !options->hardware.empty();
        ApplyIsolation(options->isolation, options->input, inspectionMemory);
        if (options->name.empty())
            options->name =
                options->file == "-" ? "stdin" : std::filesystem::path(options->file).stem().native();
        program.command = [options](const Program& chosen) { return RunDump(*options, chosen); };
    });
}

}  // namespace Quorva::Tool
