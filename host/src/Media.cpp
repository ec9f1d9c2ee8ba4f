#include "host/Media.h"
#include "host/src/Throw.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/samplefmt.h>
}

namespace Quorva::Proc {

using Conf::FormatException;
using Core::MemoryException;
using Quorva::Details::Raise;
using Quorva::Details::Throw;

namespace {

FramePtr AllocateFrame()
{
    FramePtr frame(av_frame_alloc());
    if (!frame)
        Raise(MemoryException("Unable to allocate memory for AVFrame struct", sizeof(AVFrame)));
    return frame;
}

FramePtr ShareFrame(const AVFrame& source)
{
    FramePtr frame = AllocateFrame();
    const int result = av_frame_ref(frame.get(), &source);
    if (result == AVERROR(ENOMEM))
        Raise(MemoryException("Unable to allocate memory for another reference to a frame", sizeof(AVFrame)));
    if (result < 0)
        Throw<FormatException>("The frame holds nothing");
    return frame;
}

IDataVideo::Picture PictureOf(const AVFrame& frame)
{
    return {frame.width, frame.height, frame.sample_aspect_ratio.num, frame.sample_aspect_ratio.den};
}

}  // namespace

void FrameDeleter::operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }

void SubtitleDeleter::operator()(AVSubtitle* subtitle) const noexcept
{
    avsubtitle_free(subtitle);  // the rectangles, not the structure
    delete subtitle;
}

VideoData::VideoData(const Picture& picture, PixFmt format)
    : frame(AllocateFrame()), picture(picture), format(format)
{
    frame->format = static_cast<int>(format);
    frame->width = picture.width;
    frame->height = picture.height;
    frame->sample_aspect_ratio = {picture.aspectX, picture.aspectY};
    const int result = av_frame_get_buffer(frame.get(), 0);
    if (result == AVERROR(ENOMEM)) {
        const int size = av_image_get_buffer_size(static_cast<AVPixelFormat>(format), picture.width,
                                                  picture.height, 1);  // negative when it can't be counted
        Raise(MemoryException("Unable to allocate memory for AVFrame data", size < 0 ? 0 : size)
              << MemoryException::TagFrameWidth(picture.width)
              << MemoryException::TagFrameHeight(picture.height));
    }
    if (result < 0)
        Throw<FormatException>(fmt::format("No picture of pixel format {} with {} x {} pixels",
                                           static_cast<int>(format), picture.width, picture.height));
}

VideoData::VideoData(const AVFrame& source) : VideoData(ShareFrame(source)) {}

VideoData::VideoData(FramePtr source) noexcept
    : frame(std::move(source)), picture(PictureOf(*frame)), format(static_cast<PixFmt>(frame->format))
{
}

AudioData::AudioData(const Conf::SampleInfo& info, int samples)
    : frame(AllocateFrame()), info(info), room(samples)
{
    frame->format = static_cast<int>(info.format->format);
    frame->sample_rate = info.sampleRate;
    frame->nb_samples = samples;
    // The pipeline's names of layouts are FFmpeg's. One that isn't leaves no channels, which is refused
    // below.
    av_channel_layout_from_string(&frame->ch_layout, info.layout->name->c_str());
    const int result = info.sampleRate > 0 ? av_frame_get_buffer(frame.get(), 0) : AVERROR(EINVAL);
    if (result == AVERROR(ENOMEM))
        Raise(MemoryException("Unable to allocate memory for AVFrame data",
                              static_cast<uint64_t>(samples) * info.GetSampleSizePerPlane() *
                                  (info.format->planar ? info.layout->channels : 1)));
    if (result < 0)
        Throw<FormatException>(fmt::format("No sound of {} samples at {} Hz, sample format {}, layout {}",
                                           samples, info.sampleRate, info.format->name, *info.layout->name));
}

AudioData::AudioData(const AVFrame& source, const Conf::SampleInfo& info)
    : frame(ShareFrame(source)), info(info), room(source.nb_samples)
{
    if (source.format != static_cast<int>(info.format->format) ||
        source.ch_layout.nb_channels != info.layout->channels)
        Throw<FormatException>(fmt::format("A frame of {} channels in sample format {} is not {}, {}",
                                           source.ch_layout.nb_channels, source.format, *info.layout->name,
                                           info.format->name));
}

int AudioData::GetSampleCount() const noexcept { return frame->nb_samples; }

void AudioData::SetSampleCount(int samples)
{
    if (samples < 0 || samples > room)
        Throw<FormatException>(fmt::format("{} samples in room for {}", samples, room));
    frame->nb_samples = samples;
}

SubtitleData::SubtitleData(AVSubtitle&& source)
    : subtitle(new AVSubtitle(std::exchange(source, AVSubtitle())))
{
}

}  // namespace Quorva::Proc
