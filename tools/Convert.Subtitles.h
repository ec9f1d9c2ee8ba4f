/// @file
/// Text subtitles in a conversion: what they become, and the stage that decodes and encodes them.
#pragma once

#include "tools/Convert.Containers.h"
#include "tools/Convert.Stages.h"
#include "tools/support/OpenedInput.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace Quorva::Tool {

/// Whether the codec stores text, as opposed to bitmaps.
bool IsTextSubtitle(AVCodecID codec);

/// The codec of a text identifier, COPY or NONE aside. "srt" is subrip and "ssa" is ass: FFmpeg encodes them
/// as one.
/// @throws UsageError  no such codec, or this FFmpeg has no text encoder for it
AVCodecID SubtitleCodecNamed(const std::string& name);

/// What a subtitle stream becomes in a container that has room for it.
/// @param asked  the command line's codec; may be empty
/// @return       `source` where it is copied; AV_CODEC_ID_NONE where the container can't store it
/// @throws UsageError         as SubtitleCodecNamed()
/// @throws Quorva::Exception  the container can't store the codec that was asked for
AVCodecID SubtitleTarget(AVCodecID source, const AVOutputFormat& muxer, const std::string& format,
                         const std::string& asked);

/// The subtitle stream for a container that holds one: of those that it can store the first default one that
/// isn't only for foreign passages.
/// @return an index among the streams, -1 for none
int BestSubtitle(const AVFormatContext& input, const AVOutputFormat& muxer);

/// Whether the input holds subtitles and nothing else.
bool HasOnlySubtitles(const AVFormatContext& input);

/// How a stream is decoded and encoded.
/// @throws Quorva::Exception  this FFmpeg lacks the decoder or the encoder
StreamPlan PlanSubtitle(const AVStream& source, AVCodecID target);

/// The time base of a stream's encoded subtitles.
AVRational SubtitleTick(const AVOutputFormat& muxer, const StreamPlan& stream);

/// A line of text on the screen. Times are microseconds of the output.
struct SubtitleEvent {
    int64_t start = 0;
    int64_t end = AV_NOPTS_VALUE;  ///< AV_NOPTS_VALUE: until the next one
    std::string ass;               ///< as FFmpeg's decoders give it: "order,layer,style,...,text"
};

/// Decodes the packets of one text subtitle stream, cuts them at the output's edges, and encodes them.
///
/// MP4 shows one sample at a time, so events that overlap become consecutive ones there, each with all the
/// lines that are on the screen. An event without an end lasts until the next one, at most ten seconds.
/// Events that can't be decoded or encoded are counted and dropped; ones without text or time are dropped.
class SubtitleStage {
public:
    /// @param target  of the output, receives the encoder's parameters; null where nothing is written
    /// @throws Quorva::Exception  the decoder or the encoder rejects the stream
    SubtitleStage(const StreamPlan& plan, const AVStream& source, const TimeFrame& frame, AVRational tick,
                  PacketSink& sink, AVStream* target);
    void Take(const AVPacket& packet);
    void Finish();
    /// Whether everything later lies behind the output's end.
    bool IsDone() const { return done; }
    uint64_t GetDamaged() const { return damaged; }

private:
    int Decode(const AVPacket& packet, AVSubtitle& subtitle, bool& complete);
    void Add(SubtitleEvent event);
    void EndOpen(int64_t time);
    void ShowUntil(int64_t time);
    void Write(SubtitleEvent event);
    void Encode(const SubtitleEvent& event, int64_t start, int64_t end);

    const int index;  ///< of the output's stream
    const AVRational timeBase;
    const TimeFrame frame;
    const AVRational tick;  ///< of the output's times
    PacketSink& sink;
    Proc::SafeCodecContext decoder;
    Proc::SafeCodecContext encoder;
    std::vector<uint8_t> buffer;
    std::optional<SubtitleEvent> open;   ///< its end isn't known yet
    std::vector<SubtitleEvent> showing;  ///< where only one sample is shown at a time, these two
    int64_t shown = 0;                   ///< everything before is written
    const bool oneAtATime;
    uint64_t damaged = 0;
    bool done = false;
};

/// Packets of text subtitles that begin before a seek's target and last beyond the output's beginning.
/// Seeking to the target would miss them.
class EarlierSubtitles {
public:
    /// Reads from thirty seconds before the target up to it; an input of subtitles only from its beginning.
    /// The input's position is anywhere afterwards: seek. Nothing happens where the input can't.
    /// @param target  microseconds of the input
    void Read(OpenedInput& input, const Plan& plan, int64_t target);
    /// The packets in their order; the caller may empty them.
    const std::vector<PacketPointer>& Get() const { return packets; }
    /// Whether the packet is one of them, delivered again. True once for each.
    bool Forget(const AVPacket& packet);

private:
    using Identity = std::tuple<int, int64_t, std::string>;  ///< stream, time, data
    static Identity IdentityOf(const AVPacket& packet);

    std::vector<PacketPointer> packets;
    std::multiset<Identity> known;
};

}  // namespace Quorva::Tool
