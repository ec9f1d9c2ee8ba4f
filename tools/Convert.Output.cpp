#include "tools/Convert.Output.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Dictionaries.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Header.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"
#include "tools/support/Logging.h"

#include <fmt/format.h>
#include <boost/exception/get_error_info.hpp>

#include <algorithm>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowNoMemory(const char* what, uint64_t size)
{
    Proc::Details::Raise(Core::MemoryException(fmt::format("Unable to allocate memory for {}", what), size));
}

[[noreturn]] void ThrowAllRefused(const char* muxer, const std::string& reason)
{
    Proc::Details::Raise(Proc::ProcException()
                         << TagDescription(fmt::format("{} refuses every packet: {}", muxer, reason))
                         << TagFailureKind(FailureKind::InvalidData));
}

[[noreturn]] void ThrowStopped()
{
    Proc::Details::Raise(Proc::ProcException() << TagDescription("stopped at once, as asked twice")
                                               << TagFailureKind(FailureKind::Unwritable));
}

}  // namespace

int Output::OpenPicture(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                        AVDictionary**)
{
    Output& output = *static_cast<Output*>(context->opaque);
    if (!(flags & AVIO_FLAG_WRITE))
        return AVERROR(EACCES);
    try {
        auto target =
            std::make_unique<Proc::GuardedIO>(output.files.Create(url), true, Proc::GuardedIO::SIZE,
                                              output.failure, Interruption::GetUrgentCancellation());
        *io = target.release()->Get();
        return 0;
    } catch (...) {
        output.failure.Keep();
        return AVERROR(EIO);
    }
}

int Output::ClosePicture(AVFormatContext* context, AVIOContext* io)
{
    if (!io)
        return 0;
    const std::unique_ptr<Proc::GuardedIO> target(&Proc::GuardedIO::Of(io));
    avio_flush(io);
    static_cast<Output*>(context->opaque)->closedBytes +=
        static_cast<uint64_t>(std::max<int64_t>(avio_tell(io), 0));
    return io->error;
}

Output::Output(const Plan& plan, const ConvertOptions& options, OutputFiles& files)
    : files(files), isReordered(plan.isReordered)
{
    AVFormatContext* fresh = nullptr;
    const int result = avformat_alloc_output_context2(&fresh, plan.muxer, nullptr, options.output.c_str());
    context.reset(fresh);
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("{} can't be written", plan.format), result);
    context->opaque = this;
    context->interrupt_callback = Interruption::GetUrgentCancellation().GetInterruptCallback();
    if (plan.images) {
        context->io_open = OpenPicture;
        context->io_close2 = ClosePicture;
        return;
    }
    const bool isStream = IsStreamPath(options.output);
    file = std::make_unique<Proc::GuardedIO>(
        isStream ? OpenStreamOutput(options.output) : files.Create(options.output), !isStream,
        Proc::GuardedIO::SIZE, failure, Interruption::GetUrgentCancellation());
    context->pb = file->Get();
    context->flags |= AVFMT_FLAG_CUSTOM_IO;
}

Output::~Output() = default;

void Output::Check(const char* what, int result)
{
    try {
        failure.Check();
    } catch (Core::IOException& e) {
        if (!boost::get_error_info<TagFailureKind>(e))
            e << TagFailureKind(FailureKind::Unwritable);
        throw;
    }
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("{} {}", context->oformat->name, what), result);
}

AVStream& Output::AddStream()
{
    AVStream* const stream = Proc::CreateStream(context.get(), nullptr);
    if (!stream)
        ThrowNoMemory("a stream", sizeof(AVStream));
    lastDts.push_back(AV_NOPTS_VALUE);
    return *stream;
}

void Output::Begin()
{
    const FFmpegErrors errors;
    OptionSet settings;
    // The edit lists of FFmpeg's MP4 muxer cut off what is shown before the packet stored first. Other muxers
    // leave the option alone.
    if (isReordered)
        Proc::PutMetadata(&settings, "use_editlist", "0");
    const int result = avformat_write_header(context.get(), &settings);
    if (result < 0 && !failure.IsSet() && file && !file->Get()->seekable && AcceptsWithSeeking(*context))
        ThrowFFmpegFailure(fmt::format("{} can't be written into a pipe", context->oformat->name), result);
    Check("refuses these streams", result);
    begun = true;
    std::vector<bool> awaited;
    for (const AVStream* stream : std::span(context->streams, context->nb_streams))
        awaited.push_back(stream->codecpar->codec_type != AVMEDIA_TYPE_ATTACHMENT);
    queue.emplace(awaited);
}

/// Muxers refuse time stamps of decoding that stand still or go back, as damaged inputs have them.
void Output::Repair(AVPacket& packet, AVStream& stream)
{
    int64_t& last = lastDts[static_cast<size_t>(stream.index)];
    if (packet.dts != AV_NOPTS_VALUE && packet.pts != AV_NOPTS_VALUE && packet.dts > packet.pts)
        packet.dts = packet.pts;
    if (packet.dts == AV_NOPTS_VALUE)
        return;
    const AVMediaType kind = stream.codecpar->codec_type;
    if (last != AV_NOPTS_VALUE && (kind == AVMEDIA_TYPE_VIDEO || kind == AVMEDIA_TYPE_AUDIO)) {
        const int64_t least = last + (context->oformat->flags & AVFMT_TS_NONSTRICT ? 0 : 1);
        if (packet.dts < least) {
            if (packet.pts != AV_NOPTS_VALUE)
                packet.pts = std::max(packet.pts, least);
            packet.dts = least;
        }
    }
    last = packet.dts;
}

void Output::Write(AVPacket& packet, int stream, AVRational timeBase)
{
    if (Interruption::IsUrgent())
        ThrowStopped();
    AVStream& target = *context->streams[stream];
    av_packet_rescale_ts(&packet, timeBase, target.time_base);
    packet.stream_index = stream;
    packet.pos = -1;
    Repair(packet, target);
    if (packet.pts != AV_NOPTS_VALUE)
        position = std::max(
            position,
            Proc::stream_to_global(packet.pts + std::max<int64_t>(packet.duration, 0), target.time_base));
    ++packets;
    const FFmpegErrors errors;
    CheckPacket("refuses a packet", Interleave(packet));
}

/// Has the muxer write all that it holds back when that becomes too much. (MXF's keeps it: it needs whole
/// edit units.)
int Output::Interleave(AVPacket& packet)
{
    const int64_t time = Proc::stream_to_global(packet.dts, context->streams[packet.stream_index]->time_base);
    if (time != AV_NOPTS_VALUE)
        queue->Add(static_cast<size_t>(packet.stream_index), time, static_cast<uint64_t>(packet.size));
    const bool isFull = queue->IsFull();
    context->max_interleave_delta = isFull ? 1 : InterleavingQueue::LONGEST;
    if (isFull)
        queue->Clear();
    return av_interleaved_write_frame(context.get(), &packet);
}

void Output::CheckPacket(const char* what, int result)
{
    constexpr uint64_t many = 100;  // of so many, half were not refused for their damage
    const bool damaged = result == AVERROR_INVALIDDATA || result == AVERROR_PATCHWELCOME;
    if (!damaged || failure.IsSet())
        return Check(what, result);
    ++refused;
    if (refused == packets ? packets >= many : refused > many && 2 * refused > packets)
        Check(what, result);
    refusal = FFmpegReason(result);
}

void Output::Flush()
{
    if (refused > 0 && IsEmpty())
        ThrowAllRefused(context->oformat->name, refusal);
    CheckPacket("refuses the last packets", av_interleaved_write_frame(context.get(), nullptr));
}

void Output::Finish()
{
    if (Interruption::IsUrgent())
        ThrowStopped();
    const int result = av_write_trailer(context.get());
    if (file)
        avio_flush(file->Get());
    Check("can't be ended", result);
    if (file) {
        Check("can't be ended", file->Get()->error);
        closedBytes +=
            static_cast<uint64_t>(std::max<int64_t>(avio_size(file->Get()), avio_tell(file->Get())));
        context->pb = nullptr;
        file.reset();
    }
}

uint64_t Output::GetBytes() const
{
    return closedBytes + (file ? static_cast<uint64_t>(std::max<int64_t>(avio_tell(file->Get()), 0)) : 0);
}

}  // namespace Quorva::Tool
