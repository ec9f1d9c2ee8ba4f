// Decoders, encoders, and streams that need neither.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Stages.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>

#include <algorithm>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowNoMemory(const char* what, uint64_t size)
{
    Proc::Details::Raise(Core::MemoryException(fmt::format("Unable to allocate memory for {}", what), size));
}

Proc::FramePtr NewFrame()
{
    Proc::FramePtr frame(av_frame_alloc());
    if (!frame)
        ThrowNoMemory("a frame", sizeof(AVFrame));
    return frame;
}

/// The device whose memory decoders of an implementation fill; none for those that use the usual one.
AVHWDeviceType DeviceOf(const std::string& implementation)
{
    if (implementation == Proc::ImplNames::NVDEC)
        return AV_HWDEVICE_TYPE_CUDA;
    return implementation == Proc::ImplNames::DIRECTX ? AV_HWDEVICE_TYPE_D3D11VA : AV_HWDEVICE_TYPE_NONE;
}

}  // namespace

int64_t TimeFrame::FromInput(int64_t timestamp, AVRational timeBase) const
{
    const int64_t time = Proc::stream_to_global(timestamp, timeBase);
    return time == AV_NOPTS_VALUE ? time : time - origin;
}

CopyPath::CopyPath(const AVStream& source, const TimeFrame& frame, PacketSink& sink, int stream, bool onlyOne)
    : source(source), frame(frame), sink(sink), stream(stream), onlyOne(onlyOne)
{
}

void CopyPath::Take(AVPacket& packet)
{
    if (source.disposition & AV_DISPOSITION_ATTACHED_PIC) {
        packet.pts = packet.dts = 0;
        sink.Write(packet, stream, source.time_base);
        done = true;
        return;
    }
    const int64_t decoded =
        frame.FromInput(packet.dts == AV_NOPTS_VALUE ? packet.pts : packet.dts, source.time_base);
    if (frame.end && decoded != AV_NOPTS_VALUE && decoded >= *frame.end) {
        done = true;
        return;
    }
    if (frame.cutStart && !begun && decoded != AV_NOPTS_VALUE) {
        const int64_t duration = Proc::stream_to_global(packet.duration, source.time_base);
        if (source.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) {
            if (decoded + duration <= 0)
                return;
        } else if (decoded + duration <= 0) {
            // The pictures at the beginning need all since the last key picture.
            if (packet.flags & AV_PKT_FLAG_KEY)
                waiting.clear();
            waiting.emplace_back(Proc::CopyPacket(&packet));
            return;
        } else if (packet.flags & AV_PKT_FLAG_KEY && decoded <= 0) {
            waiting.clear();
        }
        for (; !waiting.empty(); waiting.pop_front())
            Send(*waiting.front());
    }
    begun = true;
    Send(packet);
}

void CopyPath::Send(AVPacket& packet)
{
    const int64_t origin = Proc::global_to_stream(frame.origin, source.time_base);
    // Some containers stamp only one packet of several.
    if (packet.dts == AV_NOPTS_VALUE)
        packet.dts = nextDts == AV_NOPTS_VALUE && packet.pts == AV_NOPTS_VALUE ? 0 : nextDts;
    if (packet.pts == AV_NOPTS_VALUE)
        packet.pts = packet.dts;
    nextDts = packet.dts == AV_NOPTS_VALUE ? packet.dts : packet.dts + std::max<int64_t>(packet.duration, 0);
    if (packet.pts != AV_NOPTS_VALUE)
        packet.pts -= origin;
    if (packet.dts != AV_NOPTS_VALUE)
        packet.dts -= origin;
    if (source.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE && packet.pts < 0 &&
        packet.pts != AV_NOPTS_VALUE) {
        // On the screen when the output begins.
        packet.duration = std::max<int64_t>(packet.duration + packet.pts, 0);
        packet.pts = packet.dts = 0;
    }
    sink.Write(packet, stream, source.time_base);
    done = onlyOne;
}

StreamDecoder::StreamDecoder(const AVCodec* codec, const AVStream& source, int threads,
                             const std::string& implementation)
    : source(source), context(codec), frame(NewFrame())
{
    int result = avcodec_parameters_to_context(context.get(), source.codecpar);
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("decoder {} refuses stream {}", codec->name, source.index), result);
    context->pkt_timebase = source.time_base;
    context->thread_count = threads;
    if (const AVHWDeviceType type = DeviceOf(implementation);
        type != AV_HWDEVICE_TYPE_NONE && source.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
        result = av_hwdevice_ctx_create(&context->hw_device_ctx, type, nullptr, nullptr, 0);
        if (result < 0)
            ThrowFFmpegFailure(fmt::format("implementation {} finds no device of type {}", implementation,
                                           av_hwdevice_get_type_name(type)),
                               result);
    }
    result = avcodec_open2(context.get(), codec, nullptr);
    if (result < 0)
        ThrowFFmpegFailure(fmt::format("decoder {} refuses stream {}", codec->name, source.index), result);
}

void StreamDecoder::Decode(const AVPacket* packet, const TakeFrame& take)
{
    const int result = avcodec_send_packet(context.get(), packet);
    if (result == AVERROR(ENOMEM))
        ThrowNoMemory("decoding", 0);
    if (result < 0 && result != AVERROR_EOF)
        ++damaged;  // what else comes may be whole
    Receive(take);
}

void StreamDecoder::Receive(const TakeFrame& take)
{
    // Decoders give frames after an error too; one that gives errors alone has an end all the same.
    for (int errors = 0; errors < 100;) {
        const int result = avcodec_receive_frame(context.get(), frame.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return;
        if (result == AVERROR(ENOMEM))
            ThrowNoMemory("decoding", 0);
        if (result < 0) {
            ++damaged;
            ++errors;
            continue;
        }
        errors = 0;
        ++frames;
        if (frame->hw_frames_ctx) {
            const Proc::FramePtr copy = NewFrame();
            int transferred = av_hwframe_transfer_data(copy.get(), frame.get(), 0);
            if (transferred >= 0)
                transferred = av_frame_copy_props(copy.get(), frame.get());
            if (transferred < 0)
                ThrowFFmpegFailure("pictures can't be fetched from the device", transferred);
            take(*copy);
        } else {
            take(*frame);
        }
        av_frame_unref(frame.get());
    }
}

StreamEncoder::StreamEncoder(Proc::SafeCodecContext context, PacketSink& sink, int stream)
    : context(std::move(context)), sink(sink), stream(stream), packet(Proc::CreatePacket(0))
{
}

void StreamEncoder::Encode(const AVFrame* frame)
{
    const int sent = avcodec_send_frame(context.get(), frame);
    if (sent < 0 && sent != AVERROR_EOF)
        ThrowFFmpegFailure(fmt::format("encoder {} fails", context->codec->name), sent);
    while (true) {
        const int result = avcodec_receive_packet(context.get(), packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            if (result == AVERROR_EOF && context->flags & AV_CODEC_FLAG_PASS1 && context->stats_out)
                stats += context->stats_out;
            return;
        }
        if (result < 0)
            ThrowFFmpegFailure(fmt::format("encoder {} fails", context->codec->name), result);
        if (context->flags & AV_CODEC_FLAG_PASS1 && context->stats_out) {
            stats += context->stats_out;
            *context->stats_out = 0;  // encoders write it anew or not at all
        }
        if (context->codec_type == AVMEDIA_TYPE_VIDEO && packet->duration == 0 &&
            av_cmp_q(av_inv_q(context->framerate), context->time_base) == 0)
            packet->duration = 1;
        sink.Write(*packet, stream, context->time_base);
    }
}

}  // namespace Quorva::Tool
