// The conversion itself: input, paths and output brought together.
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Output.h"
#include "tools/Convert.Progress.h"
#include "tools/Convert.Stages.h"
#include "tools/support/Console.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"
#include "tools/support/OutputFiles.h"
#include "tools/support/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>

namespace Quorva::Tool {

namespace {

using Treatment = StreamPlan::Treatment;

/// Decoders of sound need a little before the beginning.
constexpr int64_t LEAD = 200'000;  // microseconds

/// A folder for an encoder's notes, gone with the object.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "tessadrin-XXXXXX").native();
        if (!mkdtemp(name.data()))
            throw std::system_error(errno, std::system_category(), "can't make a folder for the first pass");
        path = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code error;  // a leftover in a temporary folder is no failure
        std::filesystem::remove_all(path, error);
    }
    std::string File(int stream) const { return path / fmt::format("pass-{}.log", stream); }

private:
    std::filesystem::path path;
};

/// One conversion. Its member functions are its steps.
class Conversion {
public:
    Conversion(const ConvertOptions& options, bool quiet)
        : options(options), quiet(quiet), files(options.overwrite, options.keepPartial)
    {
    }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;
    ~Conversion();

    bool Run();

private:
    void Tell(const std::string& line) const
    {
        if (!quiet)
            WriteLine(line);
    }
    void Announce() const;
    void Sum(const ConvertProgress& progress) const;
    /// @return false when somebody stopped it
    bool RunPass(OpenedInput& input, int pass, ConvertProgress& progress);
    std::unique_ptr<Path> MakePath(OpenedInput& input, size_t index, PacketSink& sink, int pass);
    void Prepare(OpenedInput& input) const;
    bool Transport(OpenedInput& input, std::map<int, Path*>& paths, Output* output,
                   ConvertProgress& progress);
    EncoderSetting SettingFor(size_t index, int pass) const;
    std::optional<int64_t> ExpectedDuration(const OpenedInput& input) const;

    const ConvertOptions& options;
    const bool quiet;
    OutputFiles files;
    Plan plan;
    std::optional<TemporaryFolder> notesOfEncoders;
    std::map<size_t, std::string> passStats;  ///< of the plan's streams
    std::set<std::string> told;
    std::map<int, uint64_t> damaged;  ///< packets without effect, by input stream
    uint64_t refused = 0;             ///< packets that the muxer found damaged
    std::exception_ptr readFailure;   ///< where reading ended early; what came before is converted
    int64_t position = 0;
    uint64_t bytes = 0;
};

void Conversion::Announce() const
{
    for (const StreamPlan& stream : plan.streams)
        Tell(stream.text);
    for (const std::vector<std::string>* lines : {&plan.leftOut, &plan.notes})
        for (const std::string& line : *lines)
            Tell(line);
}

std::optional<int64_t> Conversion::ExpectedDuration(const OpenedInput& input) const
{
    if (input->duration == AV_NOPTS_VALUE || input->duration <= 0)
        return plan.end;
    const int64_t rest = input->duration - options.start.value_or(0);
    return plan.end ? std::min(*plan.end, rest) : rest;
}

EncoderSetting Conversion::SettingFor(size_t index, int pass) const
{
    EncoderSetting setting;
    setting.threads = options.threads;
    setting.pass = pass;
    if (notesOfEncoders)
        setting.passLog = notesOfEncoders->File(static_cast<int>(index));
    if (const auto stats = passStats.find(index); stats != passStats.end())
        setting.passStats = stats->second;
    return setting;
}

/// Nothing is read of streams that stay behind, and of the others nothing long before the beginning.
void Conversion::Prepare(OpenedInput& input) const
{
    for (unsigned i = 0; i < input->nb_streams; ++i)
        input->streams[i]->discard = AVDISCARD_ALL;
    for (const StreamPlan& stream : plan.streams)
        if (stream.treatment != Treatment::Attach)
            input->streams[stream.input]->discard = AVDISCARD_DEFAULT;
    if (std::ranges::any_of(plan.streams,
                            [](const StreamPlan& stream) { return stream.treatment == Treatment::Copy; }))
        input->flags |= AVFMT_FLAG_GENPTS;  // decoders find out when pictures are shown; muxers can't
    if (!options.start || *options.start <= 0)
        return;
    const int64_t target = std::max(plan.origin - LEAD, plan.origin - *options.start);
    // Where a demuxer can't, everything before is read and dropped.
    avformat_seek_file(input.Get(), -1, INT64_MIN, target, target, 0);
}

std::unique_ptr<Path> Conversion::MakePath(OpenedInput& input, size_t index, PacketSink& sink, int pass)
{
    const StreamPlan& stream = plan.streams[index];
    const AVStream& source = *input->streams[stream.input];
    const TimeFrame frame{plan.origin, plan.end, options.start.value_or(0) > 0};
    auto* const output = dynamic_cast<Output*>(&sink);
    AVStream* const target = output ? &output->AddStream() : nullptr;
    const int number = target ? target->index : 0;
    std::unique_ptr<Path> path;
    if (stream.treatment == Treatment::Copy) {
        path = std::make_unique<CopyPath>(source, frame, sink, number, plan.oneImage);
    } else if (stream.treatment != Treatment::Attach) {
        EncoderSetting setting = SettingFor(index, pass);
        setting.globalHeader = output && output->WantsGlobalHeaders();
        std::vector<std::string> remarks;
        StreamDecoder decoder(stream.decoder, source, options.threads, options.decoderImplementation);
        StreamEncoder encoder(OpenEncoder(stream, source, setting, remarks), sink, number);
        for (const std::string& remark : remarks)
            if (told.insert(remark).second)
                Tell(remark);
        if (target) {
            if (const int result = avcodec_parameters_from_context(target->codecpar, &encoder.Get());
                result < 0)
                ThrowFFmpegFailure("a stream can't be described", result);
            target->time_base = encoder.Get().time_base;
        }
        if (stream.treatment == Treatment::Video)
            path = std::make_unique<VideoPath>(stream, std::move(decoder), std::move(encoder), source, frame,
                                               options.threads);
        else
            path = std::make_unique<AudioPath>(stream, std::move(decoder), std::move(encoder), source, frame);
    }
    if (target)
        DescribeStream(*target, source, stream, *plan.muxer);
    return path;
}

bool Conversion::Transport(OpenedInput& input, std::map<int, Path*>& paths, Output* output,
                           ConvertProgress& progress)
{
    // Subtitles and covers come too seldom to tell the end by.
    const auto isAwaited = [&](const auto& entry) {
        const AVStream& stream = *input->streams[entry.first];
        return stream.codecpar->codec_type != AVMEDIA_TYPE_SUBTITLE &&
               !(stream.disposition & AV_DISPOSITION_ATTACHED_PIC);
    };
    const bool anyAwaited = std::ranges::any_of(paths, isAwaited);
    const PacketPointer packet(Proc::CreatePacket(0));
    while (!Interruption::IsWanted()) {
        try {
            if (!input.ReadPacket(packet.get()))
                return true;
        } catch (...) {
            readFailure = std::current_exception();
            return true;
        }
        if (const auto path = paths.find(packet->stream_index);
            path != paths.end() && !path->second->IsDone()) {
            // A first pass writes nothing: its position is the input's.
            const int64_t read =
                Proc::stream_to_global(packet->dts, input->streams[packet->stream_index]->time_base);
            path->second->Take(*packet);
            progress.Update(output                   ? output->GetPosition()
                            : read == AV_NOPTS_VALUE ? 0
                                                     : read - plan.origin,
                            output ? output->GetBytes() : 0);
            if (path->second->IsDone() && std::ranges::all_of(paths, [&](const auto& entry) {
                    return entry.second->IsDone() || (anyAwaited && !isAwaited(entry));
                }))
                return true;
        }
        av_packet_unref(packet.get());
    }
    return false;
}

bool Conversion::RunPass(OpenedInput& input, int pass, ConvertProgress& progress)
{
    Prepare(input);
    NoSink nowhere;
    std::optional<Output> output;
    if (pass != 1)
        output.emplace(plan, options, files);
    PacketSink& sink = output ? static_cast<PacketSink&>(*output) : nowhere;
    std::vector<std::unique_ptr<Path>> owned(plan.streams.size());
    std::map<int, Path*> paths;
    for (size_t i = 0; i < plan.streams.size(); ++i) {
        if (pass == 1 && !plan.streams[i].twoPass)
            continue;
        owned[i] = MakePath(input, i, sink, pass);
        if (owned[i])
            paths.emplace(plan.streams[i].input, owned[i].get());
    }
    if (output) {
        DescribeFile(*output->operator->(), *input.Get(), plan);
        output->Begin();
    }
    const bool complete = Transport(input, paths, output ? &*output : nullptr, progress);
    if (!complete && pass == 1)
        return false;
    for (const auto& path : owned)
        if (path)
            path->Finish();
    if (output) {
        if (readFailure && output->IsEmpty())
            std::rethrow_exception(readFailure);  // which is why
        output->Finish();
        refused = output->GetRefused();
        position = output->GetPosition();
        bytes = output->GetBytes();
    }
    for (size_t i = 0; i < owned.size(); ++i) {
        if (pass == 1 && owned[i])
            passStats[i] = static_cast<VideoPath&>(*owned[i]).GetEncoder().GetStats();
        if (pass != 1 && owned[i])
            damaged[plan.streams[i].input] = owned[i]->GetDamaged();
    }
    return complete;
}

void Conversion::Sum(const ConvertProgress& progress) const
{
    for (const auto& [stream, packets] : damaged)
        if (packets > 0)
            Tell(fmt::format("stream {}: {} damaged packet{} left out", stream, packets,
                             packets == 1 ? "" : "s"));
    if (refused > 0)
        Tell(fmt::format("{} damaged packet{} left out", refused, refused == 1 ? "" : "s"));
    std::string line = fmt::format("{}: {}, {} bytes", options.output, DurationText(position), bytes);
    if (const double speed = progress.GetSpeed(); speed > 0)
        line += fmt::format(", {:.3g} times as fast as it plays", speed);
    Tell(line);
}

bool Conversion::Run()
{
    const Interruption interruption;
    const DetectedInput detected = DetectInput(options.input);
    auto input = std::make_unique<OpenedInput>(detected);
    if (!input->GetStreamsWarning().empty())
        Tell(options.input + ": " + input->GetStreamsWarning());
    plan = MakePlan(*input, options);
    Announce();

    const auto form = options.progressJson ? ConvertProgress::Form::Json
                      : quiet              ? ConvertProgress::Form::None
                                           : ConvertProgress::Form::Terminal;
    ConvertProgress progress(form, ExpectedDuration(*input), options.output == "-");
    const bool twoPass = std::ranges::any_of(plan.streams, &StreamPlan::twoPass);
    bool complete = true;
    if (twoPass) {
        notesOfEncoders.emplace();
        progress.BeginPass(1, 2);
        if (!RunPass(*input, 1, progress)) {
            Tell(options.output + ": stopped in the first pass; nothing was written");
            return false;
        }
        input = std::make_unique<OpenedInput>(DetectInput(options.input));
        progress.BeginPass(2, 2);
    }
    complete = RunPass(*input, twoPass ? 2 : 0, progress);
    files.Commit();
    progress.End(complete, position, bytes);
    Sum(progress);
    if (!complete)
        Tell(options.output + ": stopped; what had been read by then is in it");
    if (readFailure) {
        Tell(options.output + ": what could be read is in it");
        std::rethrow_exception(readFailure);
    }
    input->CheckStreams();
    return complete;
}

Conversion::~Conversion()
{
    if (options.keepPartial)
        for (const std::string& path : files.GetUnfinished())
            Tell(path + ": what there is of it stays");
}

}  // namespace

bool CarryOut(const ConvertOptions& options, bool quiet) { return Conversion(options, quiet).Run(); }

}  // namespace Quorva::Tool
