// The conversion itself: input, paths and output brought together.
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Gaps.h"
#include "tools/Convert.LookAhead.h"
#include "tools/Convert.Outcome.h"
#include "tools/Convert.Pass.h"
#include "tools/Convert.Progress.h"
#include "tools/Convert.Subtitles.h"
#include "tools/support/Console.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"
#include "tools/support/Logging.h"
#include "tools/support/OutputFiles.h"
#include "tools/support/ReadableText.h"
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
    /// Removes what is temporary. The rest stays: threads may be in a call of a codec that takes long.
    void Abandon();

private:
    void Tell(const std::string& line) const
    {
        if (!quiet)
            WriteLine(line);
    }
    void ReportKept() const;
    void Announce() const;
    void Sum(const ConvertProgress& progress) const;
    void Open(Pass& pass, OpenedInput& input, int number);
    /// @return false when somebody stopped it
    bool RunPass(OpenedInput& input, int number, ConvertProgress& progress);
    std::unique_ptr<Path> MakePath(OpenedInput& input, size_t index, Pass& pass, int number);
    std::unique_ptr<FrameStage> MakeStage(const AVStream& source, size_t index, PacketSink& sink,
                                          AVStream* target, const EncoderSetting& setting);
    TimeFrame GetTimeFrame() const { return {plan.origin, plan.end, options.start.value_or(0) > 0}; }
    void Select(OpenedInput& input) const;
    void SetOrigin(LookAhead& beginning);
    void Seek(OpenedInput& input, LookAhead& beginning, EarlierSubtitles& earlier) const;
    std::set<int> PictureStreams(const OpenedInput& input) const;
    bool Transport(OpenedInput& input, LookAhead& beginning, Pass& pass, ConvertProgress& progress);
    bool PassOn(GapFilter& filter, const OpenedInput& input, Pass& pass, ConvertProgress& progress);
    GapFilter MakeFilter(const OpenedInput& input, const Pass& pass);
    void Complete(const OpenedInput& input, Pass& pass);
    EncoderSetting SettingFor(size_t index, int pass) const;
    std::optional<int64_t> ExpectedDuration(const OpenedInput& input) const;

    const ConvertOptions& options;
    const bool quiet;
    OutputFiles files;
    Plan plan;
    std::optional<TemporaryFolder> notesOfEncoders;
    std::map<size_t, std::string> passStats;  ///< of the plan's streams
    std::set<std::string> told;
    std::map<int, uint64_t> damaged;      ///< packets without effect, by input stream
    std::vector<StreamOutcome> outcomes;  ///< of the plan's streams, when the last pass is complete
    uint64_t refused = 0;                 ///< packets that the muxer found damaged
    std::exception_ptr readFailure;       ///< where reading ended early; what came before is converted
    int64_t position = 0;
    uint64_t bytes = 0;
    std::unique_ptr<Pass> pass;  ///< at work; last, as its threads use the others
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

/// Makes the demuxer read the streams of the plan and no others.
void Conversion::Select(OpenedInput& input) const
{
    for (unsigned i = 0; i < input->nb_streams; ++i)
        input->streams[i]->discard = AVDISCARD_ALL;
    for (const StreamPlan& stream : plan.streams)
        if (stream.treatment != Treatment::Attach)
            input->streams[stream.input]->discard = AVDISCARD_DEFAULT;
    if (std::ranges::any_of(plan.streams,
                            [](const StreamPlan& stream) { return stream.treatment == Treatment::Copy; }))
        input->flags |= AVFMT_FLAG_GENPTS;  // decoders find out when pictures are shown; muxers can't
}

/// The input begins with what it shows first, which may be stored behind other pictures.
void Conversion::SetOrigin(LookAhead& beginning)
{
    const int64_t start = options.start.value_or(0);
    const std::optional<int64_t> first = beginning.FindFirstPicture();
    if (!first || *first + start >= plan.origin)
        return;
    plan.origin = *first + start;
    plan.isReordered = std::ranges::any_of(
        plan.streams, [](const StreamPlan& stream) { return stream.treatment == Treatment::Copy; });
}

/// Skips what lies long before the beginning.
void Conversion::Seek(OpenedInput& input, LookAhead& beginning, EarlierSubtitles& earlier) const
{
    if (!options.start || *options.start <= 0)
        return;
    const int64_t target = std::max(plan.origin - LEAD, plan.origin - *options.start);
    earlier.Read(input, plan, target);
    // Where a demuxer can't, everything before is read and dropped.
    if (avformat_seek_file(input.Get(), -1, INT64_MIN, target, target, 0) >= 0)
        beginning.Drop();
}

/// The streams of moving pictures.
std::set<int> Conversion::PictureStreams(const OpenedInput& input) const
{
    std::set<int> streams;
    for (const StreamPlan& stream : plan.streams) {
        const AVStream& source = *input->streams[stream.input];
        if (source.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
            !(source.disposition & AV_DISPOSITION_ATTACHED_PIC))
            streams.insert(stream.input);
    }
    return streams;
}

/// @param target  of the output, gets to know what the encoder gives; null in a first pass
std::unique_ptr<FrameStage> Conversion::MakeStage(const AVStream& source, size_t index, PacketSink& sink,
                                                  AVStream* target, const EncoderSetting& setting)
{
    const StreamPlan& stream = plan.streams[index];
    std::vector<std::string> remarks;
    StreamEncoder encoder(OpenEncoder(stream, source, setting, remarks), sink, target ? target->index : 0);
    for (const std::string& remark : remarks)
        if (told.insert(remark).second)
            Tell(remark);
    if (target) {
        if (const int result = avcodec_parameters_from_context(target->codecpar, &encoder.Get()); result < 0)
            ThrowFFmpegFailure("a stream can't be described", result);
        target->time_base = encoder.Get().time_base;
    }
    if (stream.treatment == Treatment::Video)
        return std::make_unique<VideoStage>(stream, std::move(encoder), source, GetTimeFrame(),
                                            options.threads);
    return std::make_unique<AudioStage>(stream, std::move(encoder), source, GetTimeFrame());
}

std::unique_ptr<Path> Conversion::MakePath(OpenedInput& input, size_t index, Pass& pass, int number)
{
    const StreamPlan& stream = plan.streams[index];
    const AVStream& source = *input->streams[stream.input];
    AVStream* const target = pass.output ? &pass.output->AddStream() : nullptr;
    // The others work in the thread that writes, which must not wait for itself.
    const bool hasThread = stream.treatment == Treatment::Video || stream.treatment == Treatment::Audio;
    auto sink = std::make_unique<StepSink>(pass.steps, hasThread);
    std::unique_ptr<Path> path;
    if (stream.treatment == Treatment::Copy) {
        CopyStage stage(source, GetTimeFrame(), *sink, target ? target->index : 0, plan.oneImage);
        path = std::make_unique<DirectPath<CopyStage>>(pass.steps, std::move(sink), std::move(stage));
    } else if (stream.treatment == Treatment::Subtitle) {
        SubtitleStage stage(stream, source, GetTimeFrame(), SubtitleTick(*plan.muxer, stream), *sink, target);
        path = std::make_unique<DirectPath<SubtitleStage>>(pass.steps, std::move(sink), std::move(stage));
    } else if (stream.treatment != Treatment::Attach) {
        EncoderSetting setting = SettingFor(index, number);
        setting.globalHeader = pass.output && pass.output->WantsGlobalHeaders();
        StreamDecoder decoder(stream.decoder, source, options.threads, options.decoderImplementation);
        auto stage = MakeStage(source, index, *sink, target, setting);
        path = std::make_unique<CodedPath>(pass.steps, std::move(sink), std::move(decoder), std::move(stage));
    }
    if (target)
        DescribeStream(*target, source, stream, *plan.muxer);
    return path;
}

/// The way of packets from the demuxer to the paths; jumps that it closes up are shown once.
GapFilter Conversion::MakeFilter(const OpenedInput& input, const Pass& pass)
{
    std::set<int> streams;
    for (const auto& [index, path] : pass.paths)
        streams.insert(index);
    return {*input.Get(), streams, options.maxGap, [this](int64_t at, int64_t distance) {
                const std::string line =
                    fmt::format("{}: times jump {}by {} at {}; closed up", options.input,
                                distance < 0 ? "back " : "", DurationText(std::abs(distance)),
                                DurationText(at - plan.origin + options.start.value_or(0)));
                if (told.insert(line).second)
                    Tell(line);
            }};
}

/// @return whether nothing more is wanted
bool Conversion::PassOn(GapFilter& filter, const OpenedInput& input, Pass& pass, ConvertProgress& progress)
{
    while (const PacketPointer packet = filter.Pop()) {
        // A first pass writes nothing: its position is the input's.
        const int64_t read =
            Proc::stream_to_global(packet->dts, input->streams[packet->stream_index]->time_base);
        if (pass.Take(*packet))
            return true;
        progress.Update(pass.output              ? pass.output->GetPosition()
                        : read == AV_NOPTS_VALUE ? 0
                                                 : read - plan.origin,
                        pass.output ? pass.output->GetBytes() : 0);
    }
    return false;
}

/// @return false when somebody stopped it
bool Conversion::Transport(OpenedInput& input, LookAhead& beginning, Pass& pass, ConvertProgress& progress)
{
    GapFilter filter = MakeFilter(input, pass);
    const PacketPointer packet(Proc::CreatePacket(0));
    std::exception_ptr failure;
    while (!Interruption::IsWanted()) {
        try {
            if (!beginning.ReadPacket(packet.get()))
                break;
        } catch (...) {
            failure = std::current_exception();
            break;
        }
        if (pass.paths.contains(packet->stream_index)) {
            ++pass.read[packet->stream_index];
            if (!pass.earlier.Forget(*packet))
                filter.Push(*packet);
        }
        av_packet_unref(packet.get());
        if (PassOn(filter, input, pass, progress))
            return true;
    }
    const bool complete = !Interruption::IsWanted();
    filter.Finish();
    if (PassOn(filter, input, pass, progress) || pass.Write(0))
        return true;
    readFailure = failure;
    return complete;
}

void Conversion::Open(Pass& pass, OpenedInput& input, int number)
{
    if (number != 1)
        pass.output.emplace(plan, options, files);
    pass.owned.resize(plan.streams.size());
    for (size_t i = 0; i < plan.streams.size(); ++i) {
        if (number == 1 && !plan.streams[i].twoPass)
            continue;
        pass.owned[i] = MakePath(input, i, pass, number);
        if (pass.owned[i])
            pass.paths.emplace(plan.streams[i].input, pass.owned[i].get());
    }
    for (const auto& [index, path] : pass.paths) {
        // Subtitles and covers come too seldom to tell the end by.
        const AVStream& stream = *input->streams[index];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_SUBTITLE &&
            !(stream.disposition & AV_DISPOSITION_ATTACHED_PIC))
            pass.awaited.insert(index);
    }
    if (pass.awaited.empty())
        for (const auto& [index, path] : pass.paths)
            pass.awaited.insert(index);
    if (pass.output) {
        DescribeFile(*pass.output->operator->(), *input.Get(), plan);
        pass.output->Begin();
    }
}

/// Ends the output, unless there is nothing in it.
void Conversion::Complete(const OpenedInput& input, Pass& pass)
{
    Output& output = *pass.output;
    if (readFailure && output.IsEmpty())
        std::rethrow_exception(readFailure);  // which is why
    output.Flush();
    for (size_t i = 0; i < plan.streams.size(); ++i) {
        const int index = plan.streams[i].input;
        StreamOutcome& outcome =
            outcomes.emplace_back(OutcomeOf(plan.streams[i], *input->streams[index], plan));
        outcome.read = pass.read[index];
        outcome.damaged = damaged[index];
        outcome.written = output.GetWritten(static_cast<int>(i));
    }
    if (!HasContent(outcomes)) {
        if (Interruption::IsWanted())
            ThrowFFmpegFailure("nothing was written", AVERROR_EXIT);
        if (readFailure)
            std::rethrow_exception(readFailure);
        ThrowNoContent(outcomes);
    }
    output.Finish();
    refused = output.GetRefused();
    position = output.GetPosition();
    bytes = output.GetBytes();
}

bool Conversion::RunPass(OpenedInput& input, int number, ConvertProgress& progress)
{
    pass = std::make_unique<Pass>();
    Select(input);
    LookAhead beginning(input, PictureStreams(input));
    if (number != 2)  // the first pass has found it
        SetOrigin(beginning);
    Seek(input, beginning, pass->earlier);
    Open(*pass, input, number);
    pass->TakeEarlier();
    const bool complete = Transport(input, beginning, *pass, progress);
    if (!complete && number == 1)
        return false;
    pass->Finish();
    const bool isOverdue = Interruption::IsOverdue();  // then threads may still be at work
    for (size_t i = 0; i < pass->owned.size() && !isOverdue; ++i) {
        if (number == 1 && pass->owned[i])
            passStats[i] = pass->owned[i]->GetStats();
        if (number != 1 && pass->owned[i])
            damaged[plan.streams[i].input] = pass->owned[i]->GetDamaged();
    }
    if (pass->output)
        Complete(input, *pass);
    if (!isOverdue)
        pass.reset();
    return complete && !Interruption::IsWanted();  // a stage may have ended within a gap
}

void Conversion::Sum(const ConvertProgress& progress) const
{
    for (const auto& [stream, packets] : damaged)
        if (packets > 0)
            Tell(fmt::format("stream {}: {} damaged packet{} left out", stream, packets,
                             packets == 1 ? "" : "s"));
    if (refused > 0)
        Tell(fmt::format("{} damaged packet{} left out", refused, refused == 1 ? "" : "s"));
    for (const StreamOutcome& outcome : outcomes)
        if (outcome.IsMissing() && !outcome.IsFailure())
            Tell(DescribeMissing(outcome));
    if (plan.still)
        return Tell(fmt::format("{}: {} bytes", options.output, bytes));
    std::string line = fmt::format("{}: {}, {} bytes", options.output, DurationText(position), bytes);
    if (const double speed = progress.GetSpeed(); speed > 0)
        line += fmt::format(", {:.3g} times as fast as it plays", speed);
    Tell(line);
}

bool Conversion::Run()
{
    const Interruption interruption(OutputFiles::DiscardAll);
    const FFmpegErrors errors;  // of opening, which say what is wrong with streams
    const DetectedInput detected = WithReadableText(DetectInput(options.input));
    auto input = std::make_unique<OpenedInput>(detected);
    if (!input->GetStreamsWarning().empty())
        Tell(options.input + ": " + input->GetStreamsWarning());
    plan = MakePlan(*input, options);
    if (!IsStreamPath(options.output))
        files.Check(options.output);
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
        input = std::make_unique<OpenedInput>(WithReadableText(DetectInput(options.input)));
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
    if (complete)
        CheckOutcomes(outcomes);
    return complete;
}

Conversion::~Conversion() { ReportKept(); }

void Conversion::Abandon()
{
    ReportKept();
    files.Discard();
    notesOfEncoders.reset();
}

void Conversion::ReportKept() const
{
    if (options.keepPartial)
        for (const std::string& path : files.GetUnfinished())
            Tell(path + ": what there is of it stays");
}

}  // namespace

bool CarryOut(const ConvertOptions& options, bool quiet)
{
    const auto end = [](Conversion* conversion) {
        if (Interruption::IsOverdue())
            conversion->Abandon();
        else
            delete conversion;
    };
    const std::unique_ptr<Conversion, decltype(end)> conversion(new Conversion(options, quiet), end);
    return conversion->Run();
}

}  // namespace Quorva::Tool
