#include "tools/Dump.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Codecs.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Dumps.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/support/Failure.h"
#include "tools/support/Text.h"

#include <fmt/format.h>
#include <boost/exception/get_error_info.hpp>

namespace Quorva::Tool {

namespace {

const AVCodec* DecoderOf(const AVStream& stream)
{
    const AVCodec* codec = Proc::FindDecoder(stream.codecpar->codec_id, Proc::ImplNames::FFMPEG);
    if (!codec)
        Proc::Details::Raise(Proc::ProcException()
                             << TagDescription(fmt::format("stream {}: nothing decodes {}", stream.index,
                                                           avcodec_get_name(stream.codecpar->codec_id)))
                             << TagFailureKind(FailureKind::Unsupported));
    return codec;
}

}  // namespace

StreamDump::StreamDump(const AVStream& stream, const DumpOptions& options, std::string name, int64_t start)
    : stream(stream), options(options), name(std::move(name)), start(start)
{
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE) {
        subtitles = OpenSubtitleDecoder(*DecoderOf(stream), stream);
        return;
    }
    pictures.emplace(DecoderOf(stream), stream, 0, Proc::ImplNames::FFMPEG);
    if (!options.hardware.empty())
        device.emplace(options.hardware);
}

std::string StreamDump::GetComplaint() const
{
    const uint64_t count = pictures ? pictures->GetDamaged() : refused;
    if (count == 0)
        return {};
    return fmt::format("stream {}: {} packet{} not decoded: {}", stream.index, count, count == 1 ? "" : "s",
                       FFmpegReason(pictures ? pictures->GetFirstResult() : firstResult));
}

void StreamDump::Decode(const AVPacket* packet)
{
    if (pictures)
        pictures->Decode(packet, [this](const AVFrame& frame) { DumpPicture(frame); });
    else
        DecodeSubtitles(packet);
}

void StreamDump::DecodeSubtitles(const AVPacket* packet)
{
    if (!packet && !(subtitles->GetCapabilities() & AV_CODEC_CAP_DELAY))
        return;
    const PacketPointer end(packet ? nullptr : Proc::CreatePacket(0));
    int whole = 0;
    do {
        AVSubtitle subtitle{};
        const int result =
            avcodec_decode_subtitle2(subtitles->get(), &subtitle, &whole, packet ? packet : end.get());
        const std::unique_ptr<AVSubtitle, void (*)(AVSubtitle*)> owner(&subtitle, avsubtitle_free);
        if (result < 0) {
            if (refused++ == 0)
                firstResult = result;
            return;
        }
        if (whole)
            DumpSubtitle(subtitle, packet);
    } while (!packet && whole && !IsDone());
}

/// Whether the options want what is shown then.
/// @param time      microseconds; AV_NOPTS_VALUE when unknown
/// @param duration  likewise; 0 when unknown
bool StreamDump::IsWanted(int64_t time, int64_t duration)
{
    const bool early = time != AV_NOPTS_VALUE && time < start + options.at &&
                       (duration <= 0 || time + duration <= start + options.at);
    return !IsDone() && !(options.at > 0 && early) && seen++ % static_cast<uint64_t>(options.every) == 0;
}

void StreamDump::DumpPicture(const AVFrame& decoded)
{
    const int64_t time = Proc::stream_to_global(decoded.best_effort_timestamp, stream.time_base);
    if (!IsWanted(time, Proc::stream_to_global(decoded.duration, stream.time_base)))
        return;
    std::optional<Proc::SafeFrame> back;
    if (device)
        back = (*device)(decoded);
    const AVFrame& frame = back ? *back->get() : decoded;
    const char* format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame.format));
    Write(Proc::AVFrame_ToBmp(frame.width, frame.height, &frame), frame.flags & AV_FRAME_FLAG_KEY, time,
          fmt::format("{}x{} {}", frame.width, frame.height, format ? format : "?"));
}

void StreamDump::DumpSubtitle(const AVSubtitle& subtitle, const AVPacket* packet)
{
    if (subtitle.num_rects == 0)  // takes the one before off the screen
        return;
    int64_t time = subtitle.pts;
    if (time == AV_NOPTS_VALUE && packet)
        time = Proc::stream_to_global(packet->pts, stream.time_base);
    if (time != AV_NOPTS_VALUE)
        time += int64_t{subtitle.start_display_time} * 1000;
    int64_t duration = 0;
    if (subtitle.end_display_time > subtitle.start_display_time && subtitle.end_display_time != UINT32_MAX)
        duration = int64_t{subtitle.end_display_time - subtitle.start_display_time} * 1000;
    if (!IsWanted(time, duration))
        return;
    const AVSubtitleRect& first = *subtitle.rects[0];
    if (first.type == SUBTITLE_BITMAP) {
        Write(Proc::Subtitle_ToBmp(subtitle), false, time, fmt::format("subtitle, {}x{}", first.w, first.h));
    } else {
        ++dumped;
        fmt::print("stream {}  {}  {}\n", stream.index, TimeText(time),
                   Printable(Proc::Subtitle_ToString(subtitle)));
    }
}

/// From the file's start.
std::string StreamDump::TimeText(int64_t time) const
{
    return time == AV_NOPTS_VALUE ? "no time" : DurationText(time - start);
}

/// Writes one file, and prints a line about it.
void StreamDump::Write(const std::vector<uint8_t>& bitmap, bool key, int64_t time, const std::string& what)
{
    const std::string path = Proc::GetDumpFileName(name, dumped, key);
    try {
        files.Create(path)->Write(bitmap.data(), bitmap.size());
        files.Commit();
    } catch (Core::IOException& e) {
        const std::string* const reason = boost::get_error_info<TagDescription>(e);
        e << TagDescription(fmt::format("'{}' {}", path, reason ? *reason : e.what()))
          << TagFailureKind(FailureKind::Unwritable);
        throw;
    }
    ++dumped;
    fmt::print("{}  {}  {}\n", Printable(path), TimeText(time), what);
}

}  // namespace Quorva::Tool
