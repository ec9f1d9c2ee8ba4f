// How many frames per second a stream has.
#include "tools/Probe.h"
#include "tools/support/StreamDecoder.h"

#include <algorithm>
#include <climits>
#include <functional>
#include <string_view>

namespace Quorva::Tool {

namespace {

using std::string_view_literals::operator""sv;

constexpr AVRational UNKNOWN_RATE{0, 1};

bool IsKnown(AVRational rate) { return rate.num > 0 && rate.den > 0; }

/// From here on a rate is that of the clock, taken where frames were too few to measure by.
constexpr int CLOCK_RATE = 1000;

AVRational Plausible(AVRational rate)
{
    return IsKnown(rate) && rate.num / rate.den < CLOCK_RATE ? rate : UNKNOWN_RATE;
}

bool HasTimestamps(const AVFormatContext& context) { return !(context.iformat->flags & AVFMT_NOTIMESTAMPS); }

/// Whether every stream of the format has a rate that the codec's own headers state best.
bool IsRawVideo(const AVFormatContext& context, const AVCodecParameters& parameters)
{
    return !HasTimestamps(context) &&
           (parameters.codec_id == AV_CODEC_ID_H264 || parameters.codec_id == AV_CODEC_ID_HEVC);
}

}  // namespace

AVRational DeclaredRate(AVFormatContext* context, AVStream* stream)
{
    // FFmpeg assumes 25 frames per second for these, and time stamps by that.
    if (IsRawVideo(*context, *stream->codecpar) && IsKnown(Plausible(stream->codecpar->framerate)))
        return stream->codecpar->framerate;
    // The default duration of a track's frames becomes the average. FFmpeg's own guess, from rounded time
    // stamps, stands where it is below 5 frames per second.
    if (context->iformat->name == "matroska,webm"sv && IsKnown(Plausible(stream->avg_frame_rate)))
        return stream->avg_frame_rate;
    const AVRational guess = Plausible(av_guess_frame_rate(context, stream, nullptr));
    return IsKnown(guess) ? guess : AverageRate(*context, *stream);
}

AVRational AverageRate(const AVFormatContext& context, const AVStream& stream)
{
    return HasTimestamps(context) ? Plausible(stream.avg_frame_rate) : UNKNOWN_RATE;
}

bool IsAnimation(const AVFormatContext& context)
{
    const std::string_view demuxer = context.iformat->name;
    return (demuxer == "gif"sv || demuxer == "apng"sv) && context.nb_streams == 1;
}

AVRational ReadAnimationRate(OpenedInput& input)
{
    const AVRational timeBase = input->streams[0]->time_base;
    const PacketPointer packet(Proc::CreatePacket(0));
    std::vector<int64_t> durations;
    try {
        for (; input.ReadPacket(packet.get()); av_packet_unref(packet.get()))
            durations.push_back(packet->duration);
    } catch (const Core::MemoryException&) {
        throw;
    } catch (...) {  // reported where the file's packets are read
        return UNKNOWN_RATE;
    }
    if (durations.size() < 2 || durations.front() <= 0)
        return UNKNOWN_RATE;
    durations.pop_back();  // the last picture may be held for longer
    const bool constant =
        std::ranges::adjacent_find(durations, std::ranges::not_equal_to()) == durations.end();
    AVRational rate = UNKNOWN_RATE;
    if (constant)
        av_reduce(&rate.num, &rate.den, timeBase.den, timeBase.num * durations.front(), INT_MAX);
    return Plausible(rate);
}

}  // namespace Quorva::Tool
