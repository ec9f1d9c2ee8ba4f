/// @file
/// The stages of a conversion. Packets go from the input into one path for each stream, and from there to a
/// sink.
#pragma once

#include "Proc/Wrappers/Tessadrin/SafeSwrContext.h"
#include "Proc/Wrappers/Tessadrin/SafeSwsContext.h"
#include "Proc/Wrappers/Tessadrin/SafeTypes.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Frames.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "host/Media.h"
#include "tools/Convert.h"
#include "tools/support/StreamDecoder.h"

#include <atomic>
#include <deque>
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

/// Packets that a stage holds, in their order.
class HeldPackets {
public:
    static constexpr size_t mostPackets = 4096;
    static constexpr uint64_t mostBytes = 64 << 20;

    void Add(const AVPacket& packet);
    void Clear();
    /// Whether no more should be added.
    bool IsFull() const { return packets.size() >= mostPackets || bytes >= mostBytes; }
    /// Removes the first packet; null when there is none.
    PacketPointer Take();

private:
    std::deque<PacketPointer> packets;
    uint64_t bytes = 0;
};

/// Packets as they are, but for their times.
///
/// Holds a bounded number of packets. Where more lie between a key picture and the output's beginning, all of
/// them are written, with times before it; where more are shown behind its end, the output ends.
class CopyStage {
public:
    /// @param onlyOne  the first packet is all
    CopyStage(const AVStream& source, const TimeFrame& frame, PacketSink& sink, int stream, bool onlyOne);
    /// @param packet  emptied, or left to the caller
    void Take(AVPacket& packet);
    /// Holds nothing back that belongs to the output.
    void Finish() {}
    /// Whether nothing more is wanted.
    bool IsDone() const { return done; }
    /// A copy isn't decoded, so no damage shows.
    uint64_t GetDamaged() const { return 0; }

private:
    void Send(AVPacket& packet);
    void SendAll(HeldPackets& held);

    const AVStream& source;
    const TimeFrame frame;
    PacketSink& sink;
    const int stream;
    const bool onlyOne;
    int64_t nextDts = AV_NOPTS_VALUE;  ///< for packets without time stamps
    HeldPackets waiting;               ///< since the last key picture before the beginning
    HeldPackets late;                  ///< shown behind the end; dropped unless others in time follow
    bool begun = false;
    bool done = false;
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
    uint64_t frames = 0;  ///< encoded so far
    std::string stats;    ///< of a first pass
};

/// A pause of a stream while others go on. Times are microseconds of the input.
struct Pause {
    int64_t until = 0;    ///< how far the others have got
    int64_t last = 0;     ///< the latest packet of the stream
    bool drains = false;  ///< what the decoder holds is from before it, and nothing behind it refers to that
};

/// Whom the decoded frames of a stream go to. One thread at a time, which needn't be the input's.
class FrameStage {
public:
    /// @param encoder  open
    /// @param source   read here and not kept
    FrameStage(StreamEncoder encoder, const AVStream& source, const TimeFrame& frame)
        : encoder(std::move(encoder)), timeBase(source.time_base), frame(frame)
    {
    }
    virtual ~FrameStage() = default;
    /// @param decoded  may be changed
    virtual void Take(AVFrame& decoded) = 0;
    /// Fills a pause as far as it is known by now. Does nothing where the decoder still holds frames from
    /// before it, or the output may have a gap: what is missing is filled when the next frame comes.
    virtual void Fill(const Pause& pause) = 0;
    /// Encodes everything that is still held.
    virtual void Finish() = 0;
    /// Whether nothing more is wanted. From any thread.
    bool IsDone() const { return done; }
    const StreamEncoder& GetEncoder() const { return encoder; }

protected:
    StreamEncoder encoder;
    const AVRational timeBase;  ///< the input's
    const TimeFrame frame;
    std::atomic<bool> done = false;
};

/// Pictures: cropped, brought to size, format and rate, encoded.
class VideoStage final : public FrameStage {
public:
    VideoStage(const StreamPlan& plan, StreamEncoder encoder, const AVStream& source, const TimeFrame& frame,
               int threads);
    void Take(AVFrame& decoded) override;
    void Fill(const Pause& pause) override;
    void Finish() override;

private:
    void Crop(AVFrame& decoded) const;
    void Retime(AVFrame& converted, int64_t time, int64_t duration);
    void RepeatUntil(int64_t time);
    void Repeat(int64_t until);
    void Encode(AVFrame& converted, int64_t tick, int64_t duration);
    Proc::FramePtr Convert(AVFrame& decoded);

    const StreamPlan& plan;
    Conf::FrameCropping crop;  ///< as the container has it, where it is applied
    const int threads;         ///< for scaling
    Proc::SafeSwsContext scaler;
    Proc::AVFrameWrapper last;  ///< the picture taken last, where a constant rate may need it again
    int64_t nextTick = AV_NOPTS_VALUE;
    int64_t lastEnd = AV_NOPTS_VALUE;  ///< microseconds, these two
    int64_t lastDuration = 0;
};

struct FreeFifo {
    void operator()(AVAudioFifo* fifo) const noexcept { av_audio_fifo_free(fifo); }
};

/// Sound: brought to rate, format and layout, encoded in frames of the encoder's size.
class AudioStage final : public FrameStage {
public:
    AudioStage(const StreamPlan& plan, StreamEncoder encoder, const AVStream& source, const TimeFrame& frame);
    void Take(AVFrame& decoded) override;
    void Fill(const Pause& pause) override;
    void Finish() override;

private:
    void Place(int64_t time);
    void Convert(const boost::intrusive_ptr<Proc::AudioData>& from);
    void Keep(AVFrame& samples);
    void Skip(int64_t samples);
    void Silence(int64_t samples);
    void Encode(bool all);

    const StreamPlan& plan;
    Conf::SampleInfo from;  ///< of the samples decoded last; no rate: none yet
    Proc::SafeSwrContext resampler;
    std::unique_ptr<AVAudioFifo, FreeFifo> fifo;
    int64_t received = AV_NOPTS_VALUE;  ///< the output's position behind everything taken, in samples
    int64_t sent = 0;                   ///< the encoder's position
};

}  // namespace Quorva::Tool
