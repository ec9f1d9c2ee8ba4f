#include "Proc/Wrappers/Tessadrin/Tessadrin.Parameters.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Stages.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <thread>

namespace Quorva::Tool {

namespace {

/// Pictures may come so many ticks too early or late without one being left out or repeated.
constexpr double TOLERANCE = 1.1;

}  // namespace

VideoStage::VideoStage(const StreamPlan& plan, StreamEncoder encoder, const AVStream& source,
                       const TimeFrame& frame, int threads)
    : FrameStage(std::move(encoder), source, frame),
      plan(plan),
      threads(threads ? threads : static_cast<int>(std::max(std::thread::hardware_concurrency(), 1u)))
{
    if (plan.applyCrop)
        Proc::GetFrameCroppingFromCodecParameters(crop, source.codecpar);
}

void VideoStage::Finish()
{
    if (plan.retimed && last->width > 0 && !done)
        RepeatUntil(lastEnd);  // the last picture stays as long as it did
    encoder.Encode(nullptr);
}

void VideoStage::Take(AVFrame& decoded)
{
    if (done)
        return;
    int64_t duration = Proc::stream_to_global(decoded.duration, timeBase);
    if (duration <= 0)
        duration = Proc::AvRescale(AV_TIME_BASE, plan.frameRate.den, plan.frameRate.num);
    int64_t time = frame.FromInput(decoded.best_effort_timestamp, timeBase);
    if (time == AV_NOPTS_VALUE)
        time = lastEnd == AV_NOPTS_VALUE ? 0 : lastEnd;
    lastEnd = time + duration;
    lastDuration = duration;
    if (frame.cutStart) {
        if (time + duration / 2 < 0)
            return;
        time = std::max<int64_t>(time, 0);
    }
    if (frame.end && time >= *frame.end) {
        done = true;
        lastEnd = *frame.end;
        return;
    }
    if (frame.end)
        lastEnd = std::min(lastEnd, *frame.end);
    const Proc::FramePtr converted = Convert(decoded);
    Retime(*converted, time, lastEnd - time);
}

/// FFmpeg cuts by moving pointers.
void VideoStage::Crop(AVFrame& decoded) const
{
    decoded.crop_left += crop.left;
    decoded.crop_right += crop.right;
    decoded.crop_top += crop.top;
    decoded.crop_bottom += crop.bottom;
    if (const int result = av_frame_apply_cropping(&decoded, AV_FRAME_CROP_UNALIGNED); result < 0)
        ThrowFFmpegFailure("a picture can't be cropped", result);
}

Proc::FramePtr VideoStage::Convert(AVFrame& decoded)
{
    if (plan.applyCrop)
        Crop(decoded);
    const AVCodecContext& target = encoder.Get();
    const auto format = static_cast<AVPixelFormat>(decoded.format);
    Proc::SwsCtxParams params;
    params.src = {decoded.width, decoded.height, WithRange(format, IsFullRange(format, decoded.color_range)),
                  static_cast<Conf::YCbCrMatrix>(decoded.colorspace), nullptr};
    params.dst = {target.width, target.height, WithRange(target.pix_fmt, plan.fullRange),
                  static_cast<Conf::YCbCrMatrix>(target.colorspace), nullptr};
    params.flags = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
    Proc::FramePtr result;
    if (params.src.width == params.dst.width && params.src.height == params.dst.height &&
        params.src.format == params.dst.format) {
        result.reset(av_frame_clone(&decoded));
        if (!result)
            ThrowFFmpegFailure("a picture can't be kept", AVERROR(ENOMEM));
    } else {
        if (!scaler || !(scaler.GetParams().src == params.src))
            scaler = Proc::SafeSwsContext(params, threads);
        const Proc::VideoData room({target.width, target.height, 0, 1},
                                   Proc::PixelFormatQuorvaFromFFMPEGSafe(target.pix_fmt));
        const int scaled = scaler.Scale(decoded, *room.GetFrame());
        if (scaled < 0)
            ThrowFFmpegFailure("a picture can't be scaled", scaled);
        result.reset(av_frame_clone(room.GetFrame()));
        if (!result || av_frame_copy_props(result.get(), &decoded) < 0)
            ThrowFFmpegFailure("a picture can't be kept", AVERROR(ENOMEM));
    }
    result->format = target.pix_fmt;  // the twin without the range in its name
    result->color_range = target.color_range;
    result->colorspace = target.colorspace;
    result->sample_aspect_ratio = target.sample_aspect_ratio;
    result->pict_type = AV_PICTURE_TYPE_NONE;  // the encoder's affair
    return result;
}

void VideoStage::Retime(AVFrame& converted, int64_t time, int64_t duration)
{
    const AVRational base = encoder.Get().time_base;
    const int64_t tick = Proc::global_to_stream(time, base);
    if (nextTick == AV_NOPTS_VALUE)
        nextTick = tick;
    if (!plan.constantRate) {
        // No picture is lost: two at the same tick follow one another.
        return Encode(converted, std::max(tick, nextTick),
                      std::max<int64_t>(Proc::global_to_stream(duration, base), 1));
    }
    if (plan.retimed) {
        RepeatUntil(time);
        last = converted;
        return;
    }
    // How far the picture is from its place. One that is a little off is only unpunctual.
    const double drift =
        static_cast<double>(time) / AV_TIME_BASE / av_q2d(base) - static_cast<double>(nextTick);
    if (drift < -TOLERANCE)
        return;
    int64_t missing = drift > TOLERANCE ? std::llround(drift) : 0;
    if (last->width > 0)
        for (; missing > 0 && !done; --missing)
            Repeat(time);
    nextTick += missing;
    if (done)
        return;
    Encode(converted, nextTick, 1);
    last = converted;
}

/// At another rate than the input's, each tick shows the picture that was to be seen then: `last`, up to
/// `time`.
void VideoStage::RepeatUntil(int64_t time)
{
    const AVRational base = encoder.Get().time_base;
    // Time stamps are rounded: a picture that comes a little after its tick counts as punctual.
    const int64_t tolerance = std::min(Proc::stream_to_global(1, base) / 4, lastDuration / 2);
    while (last->width > 0 && !done && Proc::stream_to_global(nextTick, base) + tolerance < time)
        Repeat(time);
}

/// Encodes `last` once more.
/// @param until  where repeating it ends; a request to stop ends the output before, where that is far off
void VideoStage::Repeat(int64_t until)
{
    Encode(*&last, nextTick, 1);
    if (Interruption::IsWanted() &&
        until - Proc::stream_to_global(nextTick, encoder.Get().time_base) > AV_TIME_BASE)
        done = true;
}

void VideoStage::Encode(AVFrame& converted, int64_t tick, int64_t duration)
{
    if (frame.end && Proc::stream_to_global(tick, encoder.Get().time_base) >= *frame.end) {
        done = true;
        return;
    }
    converted.pts = tick;
    converted.duration = duration;
    nextTick = tick + 1;
    encoder.Encode(&converted);
    done = plan.onlyOne;
}

}  // namespace Quorva::Tool
