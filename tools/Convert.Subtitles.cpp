#include "tools/Convert.Subtitles.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "host/Charset.h"
#include "tools/Convert.Subtitles.Text.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>

namespace Quorva::Tool {

namespace {

/// Of an event whose end isn't known and that no other one follows, microseconds.
constexpr int64_t longest = 10'000'000;

/// At the same time: a bound on what a hostile input costs.
constexpr size_t mostLines = 64;

/// @param decoder  open; its styles become the encoder's
Proc::SafeCodecContext OpenEncoder(const AVCodec& codec, const AVCodecContext& decoder)
{
    Proc::SafeCodecContext context(&codec);
    context->time_base = {1, 1000};
    if (decoder.subtitle_header) {
        const auto size = static_cast<size_t>(decoder.subtitle_header_size);
        context->subtitle_header = static_cast<uint8_t*>(av_mallocz(size + 1));
        if (!context->subtitle_header)
            ThrowFFmpegFailure(fmt::format("encoder {} can't be opened", codec.name), AVERROR(ENOMEM));
        std::memcpy(context->subtitle_header, decoder.subtitle_header, size);
        context->subtitle_header_size = decoder.subtitle_header_size;
    }
    if (const int result = avcodec_open2(context.get(), &codec, nullptr); result < 0)
        ThrowFFmpegFailure(fmt::format("encoder {} rejects the subtitles", codec.name), result);
    return context;
}

struct FreeSubtitle {
    void operator()(AVSubtitle* subtitle) const noexcept { avsubtitle_free(subtitle); }
};
using SubtitleOwner = std::unique_ptr<AVSubtitle, FreeSubtitle>;

/// The same packet with its text as UTF-8.
PacketPointer Readable(const AVPacket& packet)
{
    const std::string text = Core::CharsetEncoding::GetReadeableString(
        {reinterpret_cast<const char*>(packet.data), static_cast<size_t>(packet.size)});
    PacketPointer readable(Proc::CreatePacket(text.size()));
    std::memcpy(readable->data, text.data(), text.size());
    if (av_packet_copy_props(readable.get(), &packet) < 0)
        ThrowFFmpegFailure("a packet can't be copied", AVERROR(ENOMEM));
    return readable;
}

/// The end that an event tells; AV_NOPTS_VALUE where it tells none, or one before its start.
int64_t EndOf(const AVSubtitle& subtitle, const AVPacket& packet, AVRational timeBase, int64_t start)
{
    // Milliseconds are coarser than some time bases: both are rounded once, with their sum.
    const int64_t exact = Proc::stream_to_global(packet.duration, timeBase);
    const int64_t given =
        subtitle.end_display_time == UINT32_MAX ? 0 : int64_t{subtitle.end_display_time} * 1000;
    const int64_t duration = packet.duration > 0 && std::abs(exact - given) <= 1000 ? exact : given;
    return duration > 0 && packet.duration >= 0 && exact < int64_t{UINT32_MAX} * 1000 ? start + duration
                                                                                      : AV_NOPTS_VALUE;
}

/// The code for the place on the screen that a packet has beside its text; empty for the usual one.
std::string PlaceOf(const AVPacket& packet)
{
    size_t size = 0;
    const uint8_t* data = av_packet_get_side_data(&packet, AV_PKT_DATA_WEBVTT_SETTINGS, &size);
    return data ? PlaceCode({reinterpret_cast<const char*>(data), size}) : std::string();
}

void SetPlace(AVPacket& packet, const std::string& settings)
{
    if (settings.empty())
        return;
    uint8_t* data = av_packet_new_side_data(&packet, AV_PKT_DATA_WEBVTT_SETTINGS, settings.size());
    if (!data)
        ThrowFFmpegFailure("a packet can't be described", AVERROR(ENOMEM));
    std::memcpy(data, settings.data(), settings.size());
}

}  // namespace

SubtitleStage::SubtitleStage(const StreamPlan& plan, const AVStream& source, const TimeFrame& frame,
                             AVRational tick, PacketSink& sink, AVStream* target)
    : index(target ? target->index : 0),
      timeBase(source.time_base),
      frame(frame),
      tick(tick),
      sink(sink),
      decoder(OpenSubtitleDecoder(*plan.decoder, source)),
      encoder(OpenEncoder(*plan.subtitleEncoder, *decoder.get())),
      oneAtATime(plan.subtitleEncoder->id == AV_CODEC_ID_MOV_TEXT)
{
    if (!target)
        return;
    if (const int result = avcodec_parameters_from_context(target->codecpar, encoder.get()); result < 0)
        ThrowFFmpegFailure("a stream can't be described", result);
    target->time_base = tick;
}

int SubtitleStage::Decode(const AVPacket& packet, AVSubtitle& subtitle, bool& complete)
{
    int whole = 0;
    const int result = avcodec_decode_subtitle2(decoder.get(), &subtitle, &whole, &packet);
    if (result == AVERROR(ENOMEM))
        ThrowFFmpegFailure(fmt::format("decoder {} fails", decoder->codec->name), result);
    complete = result >= 0 && whole;
    return result;
}

void SubtitleStage::Take(const AVPacket& packet)
{
    AVSubtitle subtitle{};
    bool complete = false;
    int result = Decode(packet, subtitle, complete);
    // FFmpeg rejects text that isn't UTF-8. MP4 has lengths and styles in bytes beside it.
    if (result == AVERROR_INVALIDDATA && packet.size > 0 && decoder->codec_id != AV_CODEC_ID_MOV_TEXT)
        result = Decode(*Readable(packet), subtitle, complete);
    if (result < 0)
        ++damaged;
    if (!complete)
        return;
    const SubtitleOwner owner(&subtitle);
    int64_t start = frame.FromInput(subtitle.pts, AV_TIME_BASE_Q);
    if (start == AV_NOPTS_VALUE) {
        ++damaged;
        return;
    }
    start += int64_t{subtitle.start_display_time} * 1000;
    // What is still on the screen is written at the end: steps read ahead behind the output's end are
    // dropped.
    if (frame.end && start >= *frame.end) {
        done = true;
        return;
    }
    EndOpen(start);
    const int64_t end = EndOf(subtitle, packet, timeBase, start);
    const std::string place = PlaceOf(packet);
    for (const AVSubtitleRect* rectangle : std::span(subtitle.rects, subtitle.num_rects))
        if (rectangle->type == SUBTITLE_ASS && rectangle->ass && HasText(TextOf(rectangle->ass))) {
            std::string event = AdaptEvent(rectangle->ass, decoder->codec_id, encoder->codec_id);
            event.insert(event.size() - TextOf(event).size(), place);
            Add({start, end, std::move(event)});
        }
}

void SubtitleStage::Add(SubtitleEvent event)
{
    if (event.end == AV_NOPTS_VALUE) {
        EndOpen(event.start);
        open = std::move(event);
    } else if (oneAtATime) {
        ShowUntil(event.start);
        if (showing.size() >= mostLines) {
            showing.erase(showing.begin());
            ++damaged;
        }
        showing.push_back(std::move(event));
    } else {
        Write(std::move(event));
    }
}

/// The event without an end ends at the time.
void SubtitleStage::EndOpen(int64_t time)
{
    if (!open)
        return;
    SubtitleEvent event = std::move(*open);
    open.reset();
    event.end = time > event.start ? std::min(time, event.start + longest) : event.start + longest;
    Add(std::move(event));
}

/// Writes what is on the screen up to the time, in pieces in which the lines don't change.
void SubtitleStage::ShowUntil(int64_t time)
{
    while (!showing.empty()) {
        const auto& first = *std::ranges::min_element(showing, {}, &SubtitleEvent::end);
        const auto& latest = *std::ranges::max_element(showing, {}, &SubtitleEvent::start);
        const int64_t from = std::max(shown, latest.start);
        const int64_t to = std::min(time, first.end);
        if (from < to) {
            std::vector<std::string> events;
            std::ranges::transform(showing, std::back_inserter(events), &SubtitleEvent::ass);
            Write({from, to, JoinEvents(events)});
            shown = to;
        }
        if (first.end > time)
            return;
        std::erase_if(showing, [end = first.end](const SubtitleEvent& event) { return event.end <= end; });
    }
}

void SubtitleStage::Finish()
{
    EndOpen(INT64_MAX);
    if (oneAtATime)
        ShowUntil(INT64_MAX);
}

void SubtitleStage::Write(SubtitleEvent event)
{
    event.start = std::max<int64_t>(event.start, 0);
    if (frame.end)
        event.end = std::min(event.end, *frame.end);
    // The end is rounded, not the duration: what follows at once in the input does so in the output.
    const int64_t start = av_rescale_q(event.start, AV_TIME_BASE_Q, tick);
    const int64_t end = av_rescale_q(event.end, AV_TIME_BASE_Q, tick);
    if (start < end)
        Encode(event, start, end);
}

/// @param start  in ticks, as `end`
void SubtitleStage::Encode(const SubtitleEvent& event, int64_t start, int64_t end)
{
    AVSubtitleRect rectangle{};
    rectangle.type = SUBTITLE_ASS;
    rectangle.ass = const_cast<char*>(event.ass.c_str());  // only read
    AVSubtitleRect* rectangles = &rectangle;
    AVSubtitle subtitle{};
    subtitle.num_rects = 1;
    subtitle.rects = &rectangles;
    subtitle.pts = event.start;
    const int64_t length = av_rescale_q(end - start, tick, {1, 1000});
    subtitle.end_display_time = static_cast<uint32_t>(std::min<int64_t>(length, UINT32_MAX - 1));
    // Styles become elements that are longer than ASS's, at most by this.
    buffer.resize(std::min<size_t>(4096 + event.ass.size() * 16, INT_MAX));
    const int size =
        avcodec_encode_subtitle(encoder.get(), buffer.data(), static_cast<int>(buffer.size()), &subtitle);
    if (size < 0)
        ++damaged;
    buffer.resize(static_cast<size_t>(std::max(size, 0)));
    if (encoder->codec_id == AV_CODEC_ID_SUBRIP)
        std::erase(buffer, '\r');  // the muxer ends lines without
    if (buffer.empty())
        return;
    const PacketPointer packet(Proc::CreatePacket(buffer.size()));
    std::memcpy(packet->data, buffer.data(), buffer.size());
    packet->pts = packet->dts = start;
    packet->duration = end - start;
    packet->flags |= AV_PKT_FLAG_KEY;
    if (encoder->codec_id == AV_CODEC_ID_WEBVTT)
        SetPlace(*packet, CueSettings(TextOf(event.ass)));
    sink.Write(*packet, index, tick);
}

}  // namespace Quorva::Tool
