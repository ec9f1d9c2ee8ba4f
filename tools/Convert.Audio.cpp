#include "Proc/Wrappers/Tessadrin/ChannelLayoutsConvertion.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"
#include "tools/Convert.Encoders.h"
#include "tools/Convert.Stages.h"
#include "tools/support/Failure.h"
#include "tools/support/Interruption.h"

#include <fmt/format.h>

#include <algorithm>

namespace Quorva::Tool {

namespace {

/// Holes and overlaps shorter than this are inexact time stamps: Matroska's are whole milliseconds, and some
/// files round worse.
constexpr int64_t TOLERANCE = 100'000;  // microseconds
/// Longer holes stay gaps where the container can store them.
constexpr int64_t longestSilence = 10'000'000;  // microseconds
/// Samples of silence, or room for converted ones, at a time.
constexpr int64_t PIECE = 8192;

[[noreturn]] void ThrowNoMemory(uint64_t samples)
{
    Proc::Details::Raise(Core::MemoryException("Unable to allocate memory for samples", samples));
}

/// What a frame holds. A layout that the pipeline hasn't counts by its channels.
Conf::SampleInfo InfoOf(const AVFrame& frame)
{
    Conf::ChannelLayout layout = Conf::LayoutRecord::Find(frame.ch_layout.nb_channels)->layout;
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_NATIVE &&
        Proc::IsSupportedAVChannelLayoutMask(frame.ch_layout.u.mask))
        layout = Proc::QuorvaFromAVChannelLayout(frame.ch_layout);
    return {frame.sample_rate, Proc::SampleFormatQuorvaFromFFMPEG(static_cast<AVSampleFormat>(frame.format)),
            layout};
}

bool IsSame(const Conf::SampleInfo& first, const Conf::SampleInfo& second)
{
    return first.sampleRate == second.sampleRate && first.format == second.format &&
           first.layout == second.layout;
}

void** Planes(const AVFrame& frame) { return reinterpret_cast<void**>(frame.extended_data); }

}  // namespace

AudioStage::AudioStage(const StreamPlan& plan, StreamEncoder encoder, const AVStream& source,
                       const TimeFrame& frame)
    : FrameStage(std::move(encoder), source, frame),
      plan(plan),
      fifo(av_audio_fifo_alloc(this->encoder.Get().sample_fmt, this->encoder.Get().ch_layout.nb_channels,
                               PIECE))
{
    if (!fifo)
        ThrowNoMemory(PIECE);
}

void AudioStage::Finish()
{
    if (resampler)
        Convert(nullptr);
    const AVCodecContext& target = encoder.Get();
    // FFmpeg's WMA decoder never gives the last frame.
    if (!done && received != AV_NOPTS_VALUE &&
        (target.codec_id == AV_CODEC_ID_WMAV1 || target.codec_id == AV_CODEC_ID_WMAV2))
        Silence(target.frame_size);
    Encode(true);
    encoder.Encode(nullptr);
}

void AudioStage::Take(AVFrame& decoded)
{
    if (done || decoded.nb_samples <= 0)
        return;
    const Conf::SampleInfo info = InfoOf(decoded);
    if (!IsSame(info, from)) {
        if (resampler)
            Convert(nullptr);  // what it still holds is of the former kind
        resampler.Reset();
        from = info;
        if (!IsSame(info, plan.audio->sampleInfo))
            resampler.Init(info, plan.audio->sampleInfo);
    }
    if (decoded.best_effort_timestamp != AV_NOPTS_VALUE)
        Place(frame.FromInput(decoded.best_effort_timestamp, timeBase));
    else if (received == AV_NOPTS_VALUE)
        Place(0);
    if (done)
        return;
    if (resampler)
        Convert(MakeRefCounted<Proc::AudioData>(decoded, info));
    else
        Keep(decoded);
    Encode(false);
}

/// Finds the place of the samples that come next, and fills a hole before it.
void AudioStage::Place(int64_t time)
{
    const int rate = plan.audio->sampleInfo.sampleRate;
    const int64_t place = Proc::AvRescale(time, rate, AV_TIME_BASE);
    if (received == AV_NOPTS_VALUE) {
        received = sent = place;
        return;
    }
    const int64_t expected = received + (resampler ? resampler.GetDelay(rate) : 0);
    const int64_t hole = place - expected;
    if (plan.keepsGaps && hole > Proc::AvRescale(longestSilence, rate, AV_TIME_BASE))
        Skip(hole);
    else if (hole > Proc::AvRescale(TOLERANCE, rate, AV_TIME_BASE))
        Silence(hole);
}

void AudioStage::Fill(const Pause& pause)
{
    if (done || plan.keepsGaps || received == AV_NOPTS_VALUE)
        return;
    const int rate = plan.audio->sampleInfo.sampleRate;
    const int64_t expected = received + (resampler ? resampler.GetDelay(rate) : 0);
    const auto placeOf = [&](int64_t time) {
        return Proc::AvRescale(frame.FromInput(time, AV_TIME_BASE_Q), rate, AV_TIME_BASE);
    };
    if (expected > placeOf(pause.last))
        Silence(placeOf(pause.until) - expected);
}

void AudioStage::Convert(const boost::intrusive_ptr<Proc::AudioData>& samples)
{
    const Conf::SampleInfo& to = plan.audio->sampleInfo;
    bool first = true;
    while (true) {
        const auto room = MakeRefCounted<Proc::AudioData>(to, static_cast<int>(PIECE));
        const int count = resampler.Convert(first ? samples : nullptr, room, 0);
        // Null drains: only at the end may it be given again.
        if (count > 0) {
            room->SetSampleCount(count);
            Keep(*room->GetFrame());
        }
        first = false;
        if (samples || count < PIECE)
            return;
    }
}

/// Puts samples behind those that wait for the encoder, without what lies outside of the output.
void AudioStage::Keep(AVFrame& samples)
{
    int64_t begin = 0;
    int64_t count = samples.nb_samples;
    const int64_t place = received;
    received += count;
    if (frame.cutStart && place < 0) {
        begin = std::min(-place, count);
        sent += begin;
    }
    if (frame.end) {
        const int64_t end = Proc::AvRescale(*frame.end, plan.audio->sampleInfo.sampleRate, AV_TIME_BASE);
        if (place + count >= end)
            done = true;
        count = std::clamp<int64_t>(end - place, 0, count);
    }
    if (count <= begin)
        return;
    const auto format = static_cast<AVSampleFormat>(samples.format);
    const int channels = samples.ch_layout.nb_channels;
    std::vector<uint8_t*> planes(samples.extended_data,
                                 samples.extended_data + (av_sample_fmt_is_planar(format) ? channels : 1));
    const int64_t step =
        int64_t{av_get_bytes_per_sample(format)} * (av_sample_fmt_is_planar(format) ? 1 : channels);
    for (uint8_t*& plane : planes)
        plane += begin * step;
    const int wanted = static_cast<int>(count - begin);
    if (av_audio_fifo_write(fifo.get(), reinterpret_cast<void**>(planes.data()), wanted) < wanted)
        ThrowNoMemory(static_cast<uint64_t>(wanted));
}

/// Leaves a gap. Encoders take no short frame before it, so that the rest of one is silent.
void AudioStage::Skip(int64_t samples)
{
    const int size = encoder.Get().frame_size;
    const int rest = size > 0 ? av_audio_fifo_size(fifo.get()) % size : 0;
    const int64_t padding = rest > 0 ? size - rest : 0;
    Silence(padding);
    Encode(false);
    if (done)
        return;
    received += samples - padding;
    sent = received;
}

void AudioStage::Silence(int64_t samples)
{
    while (samples > 0 && !done) {
        const int count = static_cast<int>(std::min(samples, PIECE));
        const Proc::AudioData room(plan.audio->sampleInfo, count);
        AVFrame& silent = *room.GetFrame();
        // Only unknown formats are refused, and those got no room.
        av_samples_set_silence(silent.extended_data, 0, count, silent.ch_layout.nb_channels,
                               static_cast<AVSampleFormat>(silent.format));
        Keep(silent);
        Encode(false);
        samples -= count;
        if (samples > plan.audio->sampleInfo.sampleRate && Interruption::IsWanted())
            done = true;  // the output ends within the hole
    }
}

void AudioStage::Encode(bool all)
{
    AVCodecContext& target = encoder.Get();
    const bool anySize =
        target.codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE || target.frame_size <= 0;
    while (true) {
        const int waiting = av_audio_fifo_size(fifo.get());
        const int full = anySize ? static_cast<int>(std::min<int64_t>(waiting, PIECE)) : target.frame_size;
        if (waiting == 0 || (waiting < full && !all))
            return;
        const Proc::AudioData piece(plan.audio->sampleInfo, std::min(waiting, full));
        AVFrame& samples = *piece.GetFrame();
        if (av_audio_fifo_read(fifo.get(), Planes(samples), samples.nb_samples) != samples.nb_samples)
            ThrowNoMemory(static_cast<uint64_t>(samples.nb_samples));
        if (const int result = av_channel_layout_copy(&samples.ch_layout, &target.ch_layout); result < 0)
            ThrowFFmpegFailure("samples can't be described", result);
        samples.pts = sent;
        samples.duration = samples.nb_samples;
        sent += samples.nb_samples;
        encoder.Encode(&samples);
    }
}

}  // namespace Quorva::Tool
