#include "tools/Convert.Fill.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"

#include <algorithm>

namespace Quorva::Tool {

namespace {

/// Streams are stored with less distance than that, as a rule.
constexpr int64_t shortest = 3'000'000;  // microseconds
/// Pictures behind a key picture may refer to some before it, but hardly across such a pause.
constexpr int64_t shortestToDrain = 10'000'000;  // microseconds
/// Filling is asked for in such pieces, and keeps so far behind the other streams.
constexpr int64_t piece = 1'000'000;  // microseconds

int64_t TimeOf(const AVPacket& packet, AVRational timeBase)
{
    return Proc::stream_to_global(packet.pts == AV_NOPTS_VALUE ? packet.dts : packet.pts, timeBase);
}

}  // namespace

std::optional<StreamScout::Found> StreamScout::FindNext(int stream, int64_t time)
{
    try {
        if (!detected)
            detected = DetectInput(path);
        if (!input)
            input = std::make_unique<OpenedInput>(*detected);
        // Where a demuxer can't, it reads on from where it is, or from the beginning.
        if (avformat_seek_file(input->Get(), -1, INT64_MIN, time, time, 0) < 0) {
            input.reset();
            input = std::make_unique<OpenedInput>(*detected);
        }
        if (static_cast<unsigned>(stream) >= (*input)->nb_streams)
            return std::nullopt;
        for (unsigned i = 0; i < (*input)->nb_streams; ++i)
            (*input)->streams[i]->discard = static_cast<int>(i) == stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        const PacketPointer packet(Proc::CreatePacket(0));
        while (input->ReadPacket(packet.get())) {
            const int64_t found = TimeOf(*packet, (*input)->streams[packet->stream_index]->time_base);
            const bool isNext = packet->stream_index == stream && found != AV_NOPTS_VALUE && found > time;
            const bool isKey = packet->flags & AV_PKT_FLAG_KEY;
            av_packet_unref(packet.get());
            if (isNext)
                return Found{found, isKey};
        }
    } catch (...) {  // the conversion reads the same, and reports it
        input.reset();
    }
    return std::nullopt;
}

PauseWatch::PauseWatch(const std::string& path, const std::set<int>& streams) : scout(path)
{
    for (const int stream : streams)
        tracks[stream];
}

std::map<int, Pause> PauseWatch::Account(const AVPacket& packet, AVRational timeBase, int64_t shift)
{
    std::map<int, Pause> pauses;
    const int64_t time = TimeOf(packet, timeBase);
    if (time == AV_NOPTS_VALUE)
        return pauses;
    newest = std::max(newest, time);
    if (const auto own = tracks.find(packet.stream_index); own != tracks.end())
        own->second = {std::max(own->second.last, time), AV_NOPTS_VALUE, false, std::nullopt};
    for (auto& [stream, track] : tracks)
        if (const std::optional<Pause> pause = PauseOf(stream, track, shift))
            pauses.emplace(stream, *pause);
    return pauses;
}

std::optional<Pause> PauseWatch::PauseOf(int stream, Track& track, int64_t shift)
{
    if (track.last == AV_NOPTS_VALUE || newest - track.last < shortest)
        return std::nullopt;
    if (!track.isLookedFor) {
        track.isLookedFor = true;
        track.next = scout.FindNext(stream, track.last - shift);
        if (track.next)
            track.next->time += shift;
    }
    if (!track.next || track.next->time <= newest)
        return std::nullopt;
    const int64_t until = newest - piece;
    if (track.requested != AV_NOPTS_VALUE && until - track.requested < piece)
        return std::nullopt;
    track.requested = until;
    return Pause{until, track.last, track.next->isKey && track.next->time - track.last > shortestToDrain};
}

}  // namespace Quorva::Tool
