/// @file
/// Jumps of the times that all streams of an input make together, as between two recordings in one file, or
/// where a recorder's clock was set.
#pragma once

#include "tools/support/StreamDecoder.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <vector>

namespace Quorva::Tool {

/// Packets on their way from the demuxer, with such jumps closed up: behind one, the times of all streams are
/// moved by the same distance.
///
/// A jump of one stream is undecided until it is known what the others do: a stream that jumps as well takes
/// part, and one that goes on shows that it was a gap in the first stream alone, which stays as it is. Until
/// then the packets behind the jump are held, and those of the other streams pass. A stream that has been
/// silent for longer than the limit isn't waited for, and neither is any when MOST_PACKETS or MOST_BYTES are
/// held. A stream that gets back to where another one is has had a gap, or a single wrong time.
///
/// What counts as a jump: forwards, more than the limit; backwards, more than a second; and in both
/// directions more than four times the longest step that the stream has made before, so that slow slide shows
/// have none. Animations (GIF and its like) never have one.
class GapFilter {
public:
    static constexpr size_t MOST_PACKETS = 4096;
    static constexpr uint64_t MOST_BYTES = 32 << 20;

    /// @param at        the end of what is before it, microseconds of the times as they are moved so far
    /// @param distance  by which the input jumps, microseconds
    using Report = std::function<void(int64_t at, int64_t distance)>;

    /// @param streams  of the input whose packets come; sound and pictures among them decide
    /// @param limit    microseconds; none: everything passes as it is
    GapFilter(const AVFormatContext& input, const std::set<int>& streams, std::optional<int64_t> limit,
              Report report);

    /// @param packet  emptied
    void Push(AVPacket& packet);
    /// No more packets: decides what is undecided.
    void Finish();
    /// The next packet that can go on, or null.
    PacketPointer Pop();

private:
    /// A stream. Times are microseconds, of the output unless they are raw.
    struct Track {
        AVRational timeBase{0, 1};
        bool decides = false;
        int delay = 0;                  ///< packets by which pictures may come in another order
        int64_t last = AV_NOPTS_VALUE;  ///< the latest so far
        int64_t duration = 0;           ///< of the last packet
        int64_t step = 0;               ///< the longest between two packets
        PacketPointer announced;        ///< its duration reaches over a gap, or it is shown that long

        bool jumped = false;  ///< these four in an undecided jump
        int64_t begin = 0;    ///< raw: the earliest behind it,
        int64_t newest = 0;   ///< and the latest
        int held = 0;         ///< packets
        int strays = 0;       ///< of them, in a row, from before the jump

        int64_t GetEnd() const;
        bool IsLong(int64_t time) const;
        int JumpTo(int64_t time, int64_t limit) const;
    };

    Track& TrackOf(const AVPacket& packet) { return tracks[static_cast<size_t>(packet.stream_index)]; }
    int64_t Moved(const Track& track, int64_t raw) const;
    bool Rejoins(const Track& track, int64_t time) const;
    void Account(Track& track, int64_t time, const AVPacket& packet, bool measure);
    void Emit(PacketPointer packet);
    void Hold(PacketPointer packet);
    void Begin(Track& track, int64_t raw, int jump);
    void PushSparse(PacketPointer packet, Track& track, int64_t raw);
    void PushJumped(PacketPointer packet, Track& track, int64_t raw);
    bool IsDecided(const Track& track) const;
    bool HasGoneOn() const;
    void DecideWhenKnown();
    void Decide(bool isJump);
    void CloseUp();

    const std::optional<int64_t> limit;
    const Report report;
    std::vector<Track> tracks;  ///< by stream index
    int64_t shift = 0;          ///< what is added to raw times, microseconds
    int64_t formerShift = 0;    ///< and was before the last jump, for what comes late
    int64_t current = 0;        ///< the one of the two that applied last
    int64_t newest = 0;         ///< of the packet that passed last, of a stream that decides

    int direction = 0;  ///< of the undecided jump, 1 or -1; 0: there is none
    int64_t from = 0;   ///< where it begins
    std::deque<PacketPointer> held;
    uint64_t heldBytes = 0;
    std::deque<PacketPointer> ready;
};

}  // namespace Quorva::Tool
