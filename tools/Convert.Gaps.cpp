#include "tools/Convert.Gaps.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace Quorva::Tool {

namespace {

/// Times that go back by less are inexact, or those of pictures in another order.
constexpr int64_t BACKWARDS = 1'000'000;  // microseconds
/// A step that is no more than so many of the longest one before is the stream's own pace.
constexpr int64_t PACE = 4;
/// Packets of the same time are no farther apart in a file than that.
constexpr int64_t SKEW = 2'000'000;  // microseconds
/// Pictures that follow a jump in the file may be from before it: no more of them than codecs reorder.
constexpr int STRAYS = 16;
/// Times beyond that, as damaged files have them, count as none: sums of a few of them have to be numbers.
constexpr int64_t FARTHEST = INT64_C(1) << 60;  // microseconds

/// Whether the times of a stream say what its neighbours' do.
bool Decides(const AVStream& stream)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    const bool animation = parameters.codec_id == AV_CODEC_ID_GIF ||
                           parameters.codec_id == AV_CODEC_ID_APNG || parameters.codec_id == AV_CODEC_ID_WEBP;
    return (parameters.codec_type == AVMEDIA_TYPE_VIDEO || parameters.codec_type == AVMEDIA_TYPE_AUDIO) &&
           !animation &&
           !(stream.disposition & (AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS));
}

/// Microseconds as the file has them, AV_NOPTS_VALUE: none.
int64_t RawTime(int64_t timestamp, AVRational timeBase)
{
    const int64_t time = Proc::stream_to_global(timestamp, timeBase);
    return time > -FARTHEST && time < FARTHEST ? time : AV_NOPTS_VALUE;
}

/// A time when the packet is shown: those of decoding may not have jumped yet.
int64_t RawTime(const AVPacket& packet, AVRational timeBase)
{
    return RawTime(packet.pts == AV_NOPTS_VALUE ? packet.dts : packet.pts, timeBase);
}

}  // namespace

int64_t GapFilter::Track::GetEnd() const
{
    return last + (step > 0 && (duration == 0 || duration > step) ? step : duration);
}

/// Whether that is out of proportion to the stream's steps.
bool GapFilter::Track::IsLong(int64_t time) const { return time / PACE > (step > 0 ? step : duration); }

/// @return 1: forwards, -1: backwards, 0: no jump
int GapFilter::Track::JumpTo(int64_t time, int64_t limit) const
{
    if (last == AV_NOPTS_VALUE)
        return 0;
    const int64_t distance = time - last;
    if (distance < -BACKWARDS && IsLong(-distance))
        return -1;
    return distance > limit && (step > 0 || duration > 0) && IsLong(distance) ? 1 : 0;
}

GapFilter::GapFilter(const AVFormatContext& input, const std::set<int>& streams, std::optional<int64_t> limit,
                     Report report)
    : limit(limit), report(std::move(report))
{
    tracks.resize(streams.empty() ? 0 : static_cast<size_t>(*streams.rbegin()) + 1);
    for (const int index : streams) {
        Track& track = tracks[static_cast<size_t>(index)];
        track.timeBase = input.streams[index]->time_base;
        track.decides = Decides(*input.streams[index]);
        track.delay = input.streams[index]->codecpar->video_delay;
    }
}

/// The time in the output: of the two that may apply behind a jump, the one that is nearer to what has
/// passed.
int64_t GapFilter::Moved(const Track& track, int64_t raw) const
{
    const int64_t near = track.decides && track.last != AV_NOPTS_VALUE ? track.last : newest;
    return raw + (std::abs(raw + formerShift - near) < std::abs(raw + shift - near) ? formerShift : shift);
}

/// Whether the stream has been away from another one, and is back there.
bool GapFilter::Rejoins(const Track& track, int64_t time) const
{
    return std::ranges::any_of(tracks, [&](const Track& other) {
        return other.decides && &other != &track && other.last != AV_NOPTS_VALUE &&
               std::abs(time - other.last) < std::abs(track.last - other.last) / 2;
    });
}

void GapFilter::Push(AVPacket& packet)
{
    PacketPointer own(Proc::CreatePacket(0));
    av_packet_move_ref(own.get(), &packet);
    if (!limit) {
        ready.push_back(std::move(own));
        return;
    }
    Track& track = TrackOf(*own);
    const int64_t raw = RawTime(*own, track.timeBase);
    if (!track.decides || raw == AV_NOPTS_VALUE)
        return PushSparse(std::move(own), track, raw);
    if (track.jumped)
        return PushJumped(std::move(own), track, raw);
    const int64_t time = Moved(track, raw);
    const int jump = track.JumpTo(time, *limit);
    if (jump != 0 && (direction == 0 || direction == jump) && !Rejoins(track, time)) {
        Begin(track, raw, jump);
        Hold(std::move(own));
    } else {
        Account(track, time, *own, jump == 0);
        Emit(std::move(own));
    }
    DecideWhenKnown();
}

/// A packet that decides nothing goes with those that are on its side of the jump.
void GapFilter::PushSparse(PacketPointer packet, Track& track, int64_t raw)
{
    const bool isBehind = track.decides || raw == AV_NOPTS_VALUE
                              ? track.jumped
                              : direction != 0 && (Moved(track, raw) - from) * direction > *limit;
    if (isBehind)
        Hold(std::move(packet));
    else
        Emit(std::move(packet));
    DecideWhenKnown();
}

/// A packet of a stream whose jump is undecided.
void GapFilter::PushJumped(PacketPointer packet, Track& track, int64_t raw)
{
    const int64_t step = raw - track.newest;
    const int64_t time = Moved(track, raw);
    if (step <= *limit && (step >= -BACKWARDS || !track.IsLong(-step))) {
        track.newest = std::max(track.newest, raw);
        track.begin = std::min(track.begin, raw);  // the first one in the file isn't the first one shown
        track.strays = 0;
    } else if (track.JumpTo(time, *limit) == 0 && ++track.strays <= STRAYS) {
        track.last = std::max(track.last, time);
    } else {
        // One wrong time, or another jump: the latter is found anew.
        Decide(false);
        return Push(*packet);
    }
    ++track.held;
    Hold(std::move(packet));
    DecideWhenKnown();
}

void GapFilter::Finish()
{
    if (direction != 0)
        Decide(true);
    for (Track& track : tracks)
        if (track.announced)
            ready.push_back(std::move(track.announced));
}

PacketPointer GapFilter::Pop()
{
    if (ready.empty())
        return nullptr;
    PacketPointer packet = std::move(ready.front());
    ready.pop_front();
    return packet;
}

/// @param measure  whether the step from the packet before is one that the stream makes
void GapFilter::Account(Track& track, int64_t time, const AVPacket& packet, bool measure)
{
    const bool isFirst = track.last == AV_NOPTS_VALUE;
    if (measure && !isFirst)
        track.step = std::max(track.step, time - track.last);
    track.last = isFirst || track.JumpTo(time, *limit) < 0 ? time : std::max(track.last, time);
    track.duration = std::max<int64_t>(Proc::stream_to_global(packet.duration, track.timeBase), 0);
    newest = time;
    for (Track& other : tracks)  // pictures that are shown for long, as it turns out
        if (other.announced && &other != &track && time > other.last + *limit)
            ready.push_back(std::move(other.announced));
}

/// Moves the packet's times, and lets it go on.
void GapFilter::Emit(PacketPointer packet)
{
    Track& track = TrackOf(*packet);
    for (int64_t* const timestamp : {&packet->dts, &packet->pts})
        if (const int64_t raw = RawTime(*timestamp, track.timeBase); raw != AV_NOPTS_VALUE) {
            const int64_t distance = Moved(track, raw) - raw;
            *timestamp = av_sat_add64(*timestamp, Proc::global_to_stream(distance, track.timeBase));
            current = track.decides ? distance : current;
        }
    if (track.announced)
        ready.push_back(std::move(track.announced));
    if (limit && track.decides && track.step > 0 && track.duration > *limit && track.IsLong(track.duration))
        track.announced = std::move(packet);
    else
        ready.push_back(std::move(packet));
}

void GapFilter::Hold(PacketPointer packet)
{
    heldBytes += static_cast<uint64_t>(packet->size);
    held.push_back(std::move(packet));
}

void GapFilter::Begin(Track& track, int64_t raw, int jump)
{
    if (direction == 0)
        from = track.GetEnd();
    direction = jump;
    track.jumped = true;
    track.begin = track.newest = raw;
    track.held = 1;
    track.strays = 0;
}

/// Whether the stream has jumped, or isn't one to wait for.
bool GapFilter::IsDecided(const Track& track) const
{
    if (track.jumped)
        return track.held > track.delay || track.newest - track.begin > *limit;
    return !track.decides || track.last == AV_NOPTS_VALUE || from - track.last > *limit;
}

/// Whether some stream has gone on where the jump should be.
bool GapFilter::HasGoneOn() const
{
    return std::ranges::any_of(tracks, [this](const Track& track) {
        return track.decides && !track.jumped && track.last != AV_NOPTS_VALUE &&
               track.last > from + std::min(*limit, SKEW);
    });
}

void GapFilter::DecideWhenKnown()
{
    if (direction == 0)
        return;
    if (HasGoneOn())
        return Decide(false);
    const bool all = std::ranges::all_of(tracks, [this](const Track& track) { return IsDecided(track); });
    const bool silent = std::ranges::any_of(
        tracks, [this](const Track& track) { return track.jumped && track.newest - track.begin > *limit; });
    if (all || silent || held.size() >= MOST_PACKETS || heldBytes >= MOST_BYTES)
        Decide(true);
}

/// @param isJump  of all streams
void GapFilter::Decide(bool isJump)
{
    if (isJump)
        CloseUp();
    direction = 0;
    heldBytes = 0;
    for (Track& track : tracks)
        track.jumped = false;
    for (PacketPointer& packet : std::exchange(held, {})) {
        Track& track = TrackOf(*packet);
        const int64_t raw = RawTime(*packet, track.timeBase);
        if (track.decides && raw != AV_NOPTS_VALUE)
            Account(track, Moved(track, raw), *packet, false);
        Emit(std::move(packet));
    }
}

/// Moves the times as far as no stream's overlap.
void GapFilter::CloseUp()
{
    int64_t moved = INT64_MIN;
    for (const Track& track : tracks)
        if (track.jumped)
            moved = std::max(moved, track.GetEnd() - track.begin);
    if (std::abs(moved) >= FARTHEST)
        return;
    for (const Track& track : tracks)
        if (track.jumped && track.announced)
            track.announced->duration = Proc::global_to_stream(track.step, track.timeBase);
    report(from, current - moved);
    formerShift = current;
    shift = moved;
}

}  // namespace Quorva::Tool
