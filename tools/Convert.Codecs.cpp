// Decoders, encoders, and streams that need neither.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Stages.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"
#include "tools/support/Logging.h"

#include <fmt/format.h>

#include <algorithm>

namespace Quorva::Tool {

int64_t TimeFrame::FromInput(int64_t timestamp, AVRational timeBase) const
{
    const int64_t time = Proc::stream_to_global(timestamp, timeBase);
    return time == AV_NOPTS_VALUE ? time : time - origin;
}

void HeldPackets::Add(const AVPacket& packet)
{
    packets.emplace_back(Proc::CopyPacket(&packet));
    bytes += static_cast<uint64_t>(packet.size);
}

void HeldPackets::Clear()
{
    packets.clear();
    bytes = 0;
}

PacketPointer HeldPackets::Take()
{
    if (packets.empty())
        return nullptr;
    PacketPointer packet = std::move(packets.front());
    packets.pop_front();
    bytes -= static_cast<uint64_t>(packet->size);
    return packet;
}

CopyStage::CopyStage(const AVStream& source, const TimeFrame& frame, PacketSink& sink, int stream,
                     bool onlyOne)
    : source(source), frame(frame), sink(sink), stream(stream), onlyOne(onlyOne)
{
}

void CopyStage::Take(AVPacket& packet)
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
    const bool isSubtitle = source.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE;  // may overlap
    if (frame.cutStart && (!begun || isSubtitle) && decoded != AV_NOPTS_VALUE) {
        const int64_t duration = Proc::stream_to_global(packet.duration, source.time_base);
        if (source.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) {
            if (decoded + duration <= 0)
                return;
        } else if (decoded + duration <= 0) {
            // The pictures at the beginning need all since the last key picture.
            if (packet.flags & AV_PKT_FLAG_KEY)
                waiting.Clear();
            waiting.Add(packet);
            if (waiting.IsFull()) {
                SendAll(waiting);
                begun = true;
            }
            return;
        } else if (packet.flags & AV_PKT_FLAG_KEY && decoded <= 0) {
            waiting.Clear();
        }
        SendAll(waiting);
    }
    begun = true;
    const int64_t shown = frame.FromInput(packet.pts, source.time_base);
    if (frame.end && shown != AV_NOPTS_VALUE && shown >= *frame.end) {
        // Shown too late, but pictures that are shown in time may refer to it.
        late.Add(packet);
        done = late.IsFull();
        return;
    }
    SendAll(late);
    Send(packet);
}

void CopyStage::SendAll(HeldPackets& held)
{
    while (const PacketPointer packet = held.Take())
        Send(*packet);
}

void CopyStage::Send(AVPacket& packet)
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
    if (source.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE && frame.end && packet.pts != AV_NOPTS_VALUE)
        packet.duration =
            std::min(packet.duration,
                     std::max<int64_t>(Proc::global_to_stream(*frame.end, source.time_base) - packet.pts, 0));
    sink.Write(packet, stream, source.time_base);
    done = onlyOne;
}

StreamEncoder::StreamEncoder(Proc::SafeCodecContext context, PacketSink& sink, int stream)
    : context(std::move(context)), sink(sink), stream(stream), packet(Proc::CreatePacket(0))
{
}

void StreamEncoder::Encode(const AVFrame* frame)
{
    if (!frame && frames == 0)
        return;  // some encoders make packets of nothing
    frames += frame ? 1 : 0;
    const FFmpegErrors errors;
    // What an encoder holds may take it long, and a stopped output is complete without.
    const auto isDropped = [&] { return !frame && Interruption::IsOverdue(); };
    if (isDropped())
        return;
    const int sent = avcodec_send_frame(context.get(), frame);
    if (sent < 0 && sent != AVERROR_EOF)
        ThrowFFmpegFailure(fmt::format("encoder {} fails", context->codec->name), sent);
    while (!isDropped()) {
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
