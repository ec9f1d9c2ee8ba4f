/// @file
/// The stages of a conversion. Packets go from the input into one path for each stream, and from there to a
/// sink. One thread; FFmpeg's own threads decode and encode.
#pragma once

#include "Proc/Wrappers/Tessadrin/SafeSwrContext.h"
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Frames.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "host/Media.h"
#include "tools/Convert.h"
#include "tools/support/StreamDecoder.h"

#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace Quorva::Tool {

/// Whom packets go to.
class PacketSink {
public:
    virtual ~PacketSink() = default;
    /// @param packet    times in `timeBase`, 0 being the output's beginning; emptied
    /// @param stream    of the output
    virtual void Write(AVPacket& packet, int stream, AVRational timeBase) = 0;
};

/// Takes packets and throws them away, as in a first pass.
class NoSink final : public PacketSink {
public:
    void Write(AVPacket& packet, int, AVRational) override { av_packet_unref(&packet); }
};

/// Where the output begins and ends in the input's time.
struct TimeFrame {
    int64_t origin = 0;          ///< microseconds, these two
    std::optional<int64_t> end;  ///< from the origin
    bool cutStart = false;       ///< what comes before the origin is not wanted

    /// Microseconds of the output; AV_NOPTS_VALUE stays.
    int64_t FromInput(int64_t timestamp, AVRational timeBase) const;
};

/// The way of one stream's packets.
class Path {
public:
    virtual ~Path() = default;
    /// @param packet  may be emptied
    virtual void Take(AVPacket& packet) = 0;
    /// Hands on everything that is still held.
    virtual void Finish() = 0;
    /// Whether nothing more is wanted.
    bool IsDone() const { return done; }
    /// Packets that the decoder made nothing of.
    virtual uint64_t GetDamaged() const { return 0; }

protected:
    bool done = false;
};

/// Packets as they are, but for their times.
class CopyPath final : public Path {
public:
    /// @param onlyOne  the first packet is all
    CopyPath(const AVStream& source, const TimeFrame& frame, PacketSink& sink, int stream, bool onlyOne);
    void Take(AVPacket& packet) override;
    void Finish() override {}

private:
    void Send(AVPacket& packet);

    const AVStream& source;
    const TimeFrame frame;
    PacketSink& sink;
    const int stream;
    const bool onlyOne;
    int64_t nextDts = AV_NOPTS_VALUE;   ///< for packets without time stamps
    std::deque<PacketPointer> waiting;  ///< since the last key picture before the beginning
    bool begun = false;
};

/// An opened encoder and where its packets go.
class StreamEncoder {
public:
    StreamEncoder(Proc::SafeCodecContext context, PacketSink& sink, int stream);
    /// @param frame  null: everything that the encoder still holds
    void Encode(const AVFrame* frame);
    AVCodecContext& Get() const { return *context.get(); }
    const std::string& GetStats() const { return stats; }

private:
    Proc::SafeCodecContext context;
    PacketSink& sink;
    const int stream;
    PacketPointer packet;
    std::string stats;  ///< of a first pass
};

/// Pictures: decoded, cropped, brought to size, format and rate, encoded.
class VideoPath final : public Path {
public:
    VideoPath(const StreamPlan& plan, StreamDecoder decoder, StreamEncoder encoder, const AVStream& source,
              const TimeFrame& frame, int threads);
    void Take(AVPacket& packet) override;
    void Finish() override;
    uint64_t GetDamaged() const override { return decoder.GetDamaged(); }
    const StreamEncoder& GetEncoder() const { return encoder; }

private:
    void TakeFrame(AVFrame& decoded);
    void Retime(AVFrame& converted, int64_t time, int64_t duration);
    void RepeatUntil(int64_t time);
    void Encode(AVFrame& converted, int64_t tick, int64_t duration);
    Proc::FramePtr Convert(AVFrame& decoded);

    const StreamPlan& plan;
    StreamDecoder decoder;
    StreamEncoder encoder;
    const AVStream& source;
    const TimeFrame frame;
    const int threads;  ///< for scaling
    Proc::SafeSwsContext scaler;
    Proc::AVFrameWrapper last;  ///< the picture taken last, where a constant rate may need it again
    int64_t nextTick = AV_NOPTS_VALUE;
    int64_t lastEnd = AV_NOPTS_VALUE;  ///< microseconds, these two
    int64_t lastDuration = 0;
};

struct FreeFifo {
    void operator()(AVAudioFifo* fifo) const noexcept { av_audio_fifo_free(fifo); }
};

/// Sound: decoded, brought to rate, format and layout, encoded in frames of the encoder's size.
class AudioPath final : public Path {
public:
    AudioPath(const StreamPlan& plan, StreamDecoder decoder, StreamEncoder encoder, const AVStream& source,
              const TimeFrame& frame);
    void Take(AVPacket& packet) override;
    void Finish() override;
    uint64_t GetDamaged() const override { return decoder.GetDamaged(); }

private:
    void TakeFrame(AVFrame& decoded);
    void Place(int64_t time);
    void Convert(const boost::intrusive_ptr<Proc::AudioData>& from);
    void Keep(AVFrame& samples);
    void Silence(int64_t samples);
    void Encode(bool all);

    const StreamPlan& plan;
    StreamDecoder decoder;
    StreamEncoder encoder;
    const AVStream& source;
    const TimeFrame frame;
    Conf::SampleInfo from;  ///< of the samples decoded last; no rate: none yet
    Proc::SafeSwrContext resampler;
    std::unique_ptr<AVAudioFifo, FreeFifo> fifo;
    int64_t received = AV_NOPTS_VALUE;  ///< the output's position behind everything taken, in samples
    int64_t sent = 0;                   ///< the encoder's position
};

}  // namespace Quorva::Tool
