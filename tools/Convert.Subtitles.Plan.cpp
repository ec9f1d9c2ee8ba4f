// What becomes of subtitle streams, and those that are on the screen when the output begins.
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Subtitles.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <string_view>

namespace Quorva::Tool {

namespace {

/// Preferred where a container can't store a text subtitle as it is.
constexpr AVCodecID fallbacks[] = {AV_CODEC_ID_SUBRIP, AV_CODEC_ID_MOV_TEXT, AV_CODEC_ID_WEBVTT,
                                   AV_CODEC_ID_ASS};

constexpr int64_t lookBack = 30'000'000;  // microseconds

bool IsSubtitle(const AVStream* stream) { return stream->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE; }

std::span<AVStream* const> StreamsOf(const AVFormatContext& input)
{
    return {input.streams, input.nb_streams};
}

}  // namespace

bool IsTextSubtitle(AVCodecID codec)
{
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec);
    return descriptor && descriptor->props & AV_CODEC_PROP_TEXT_SUB;
}

AVCodecID SubtitleCodecNamed(const std::string& name)
{
    AVCodecID codec = CodecNamed(name, AVMEDIA_TYPE_SUBTITLE);
    if (codec == AV_CODEC_ID_SRT)
        codec = AV_CODEC_ID_SUBRIP;
    if (codec == AV_CODEC_ID_SSA)
        codec = AV_CODEC_ID_ASS;
    if (!IsTextSubtitle(codec) || !avcodec_find_encoder(codec))
        ThrowUsage(
            fmt::format("subtitles cannot be converted to {}: --subtitle-codec is subrip, ass, webvtt, "
                        "mov_text, copy or none",
                        name));
    return codec;
}

AVCodecID SubtitleTarget(AVCodecID source, const AVOutputFormat& muxer, const std::string& format,
                         const std::string& asked)
{
    const bool isCopy = asked.empty() || asked == COPY;
    const AVCodecID wanted = isCopy ? source : SubtitleCodecNamed(asked);
    if (wanted == source || (wanted == AV_CODEC_ID_ASS && source == AV_CODEC_ID_SSA)) {
        if (Holds(muxer, source))
            return source;
    }
    if (asked == COPY || !IsTextSubtitle(source))
        return AV_CODEC_ID_NONE;
    if (!isCopy && !Holds(muxer, wanted))
        ThrowRefused(fmt::format("{} cannot store {}", format, CodecName(wanted)));
    if (!isCopy)
        return wanted;
    const auto* const fallback =
        std::ranges::find_if(fallbacks, [&](AVCodecID codec) { return Holds(muxer, codec); });
    return fallback == std::end(fallbacks) ? AV_CODEC_ID_NONE : *fallback;
}

int BestSubtitle(const AVFormatContext& input, const AVOutputFormat& muxer)
{
    int best = -1, bestRank = -1;
    for (const AVStream* stream : StreamsOf(input)) {
        if (!IsSubtitle(stream) ||
            SubtitleTarget(stream->codecpar->codec_id, muxer, {}, {}) == AV_CODEC_ID_NONE)
            continue;
        const int rank = (stream->disposition & AV_DISPOSITION_FORCED ? 0 : 2) +
                         (stream->disposition & AV_DISPOSITION_DEFAULT ? 1 : 0);
        if (rank > bestRank) {
            best = stream->index;
            bestRank = rank;
        }
    }
    return best;
}

bool HasOnlySubtitles(const AVFormatContext& input)
{
    return std::ranges::all_of(StreamsOf(input), IsSubtitle);
}

StreamPlan PlanSubtitle(const AVStream& source, AVCodecID target)
{
    StreamPlan stream;
    stream.input = source.index;
    stream.treatment = StreamPlan::Treatment::Subtitle;
    stream.decoder = ChooseDecoder(source, {});
    stream.subtitleEncoder = avcodec_find_encoder(target);
    if (!stream.subtitleEncoder)
        ThrowRefused(fmt::format("this FFmpeg lacks an encoder for {}", CodecName(target)));
    stream.text = fmt::format("stream {}: subtitle {} is converted to {}", source.index,
                              CodecName(source.codecpar->codec_id), CodecName(target));
    return stream;
}

AVRational SubtitleTick(const AVOutputFormat& muxer, const StreamPlan& stream)
{
    // FFmpeg's MP4 muxer compares times of tracks without regard to their time bases, and inserts empty
    // samples between events that touch unless this one is the finest. A finer one than this limits pauses to
    // an hour.
    if (stream.subtitleEncoder->id == AV_CODEC_ID_MOV_TEXT)
        return {1, 100'000};
    return {1, muxer.name == std::string_view("ass") ? 100 : 1000};
}

EarlierSubtitles::Identity EarlierSubtitles::IdentityOf(const AVPacket& packet)
{
    return {packet.stream_index, packet.pts,
            std::string(reinterpret_cast<const char*>(packet.data), static_cast<size_t>(packet.size))};
}

void EarlierSubtitles::Read(OpenedInput& input, const Plan& plan, int64_t target)
{
    std::set<int> streams;
    for (const StreamPlan& stream : plan.streams)
        if (IsTextSubtitle(input->streams[stream.input]->codecpar->codec_id))
            streams.insert(stream.input);
    const int64_t first = input->start_time == AV_NOPTS_VALUE ? 0 : input->start_time;
    const int64_t from = HasOnlySubtitles(*input.Get()) ? first : std::max(target - lookBack, first);
    if (streams.empty() || !input->pb || !(input->pb->seekable & AVIO_SEEKABLE_NORMAL) ||
        avformat_seek_file(input.Get(), -1, INT64_MIN, from, from, 0) < 0)
        return;
    const PacketPointer packet(Proc::CreatePacket(0));
    try {
        while (input.ReadPacket(packet.get())) {
            const AVRational timeBase = input->streams[packet->stream_index]->time_base;
            const int64_t time = Proc::stream_to_global(packet->pts, timeBase);
            const int64_t end =
                time + Proc::stream_to_global(std::max<int64_t>(packet->duration, 0), timeBase);
            if (time != AV_NOPTS_VALUE && time > target)
                break;
            if (time != AV_NOPTS_VALUE && end > plan.origin && streams.contains(packet->stream_index)) {
                known.insert(IdentityOf(*packet));
                packets.emplace_back(Proc::CopyPacket(packet.get()));
            }
            av_packet_unref(packet.get());
        }
    } catch (const Quorva::Exception&) {  // reading fails again, and is reported, where the output needs it
    }
}

bool EarlierSubtitles::Forget(const AVPacket& packet)
{
    if (known.empty())
        return false;
    const auto found = known.find(IdentityOf(packet));
    if (found == known.end())
        return false;
    known.erase(found);
    return true;
}

}  // namespace Quorva::Tool
