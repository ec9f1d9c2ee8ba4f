// The way of each stream through a conversion: where reading begins, and what packets pass through.
#include "tools/Convert.Chapters.h"
#include "tools/Convert.Conversion.h"
#include "tools/Convert.Subtitles.h"
#include "tools/support/Failure.h"

#include <algorithm>

namespace Quorva::Tool {

namespace {

using Treatment = StreamPlan::Treatment;

/// Decoders of sound need a little before the beginning.
constexpr int64_t LEAD = 200'000;  // microseconds

}  // namespace

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
        AVFormatContext& output = *pass.output->operator->();
        DescribeFile(output, *input.Get());
        describesChaptersLast = DescribesChaptersLast(output, *input.Get(), options.maxGap);
        if (!describesChaptersLast)
            DescribeChapters(output, *input.Get(), plan, {});
        pass.output->Begin();
    }
}

}  // namespace Quorva::Tool
