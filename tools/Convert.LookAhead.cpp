#include "tools/Convert.LookAhead.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.TimeBase.h"

#include <algorithm>
#include <utility>

namespace Quorva::Tool {

namespace {

/// Pictures that are looked at even where their decoding times say that the first one is found: some writers
/// get those times wrong.
constexpr int leastPictures = 16;
constexpr int mostPictures = 64;
/// A stream may not begin for long, or never.
constexpr size_t mostPackets = 1000;
constexpr int64_t mostBytes = 32 << 20;

}  // namespace

void LookAhead::Look(const AVPacket& packet)
{
    if (!unsettled.contains(packet.stream_index) || packet.flags & AV_PKT_FLAG_DISCARD)
        return;
    const AVStream& stream = *input->streams[packet.stream_index];
    const int64_t shown = Proc::stream_to_global(packet.pts, stream.time_base);
    const int64_t decoded = Proc::stream_to_global(packet.dts, stream.time_base);
    if (shown != AV_NOPTS_VALUE)
        first = std::min(first.value_or(shown), shown);
    const AVCodecDescriptor* const codec = avcodec_descriptor_get(stream.codecpar->codec_id);
    const bool reorders = codec && codec->props & AV_CODEC_PROP_REORDER;
    ++pictures;
    const bool isFound = decoded != AV_NOPTS_VALUE && first && decoded >= *first && pictures >= leastPictures;
    if (!reorders || shown == AV_NOPTS_VALUE || isFound || pictures >= mostPictures)
        unsettled.erase(packet.stream_index);
}

std::optional<int64_t> LookAhead::FindFirstPicture()
{
    int64_t bytes = 0;
    try {
        while (!unsettled.empty() && packets.size() < mostPackets && bytes < mostBytes) {
            PacketPointer packet(Proc::CreatePacket(0));
            if (!input.ReadPacket(packet.get()))
                break;
            Look(*packet);
            bytes += packet->size;
            packets.push_back(std::move(packet));
        }
    } catch (...) {
        failure = std::current_exception();
    }
    return first;
}

bool LookAhead::ReadPacket(AVPacket* packet)
{
    if (!packets.empty()) {
        av_packet_move_ref(packet, packets.front().get());
        packets.pop_front();
        return true;
    }
    if (failure)
        std::rethrow_exception(std::exchange(failure, nullptr));
    return input.ReadPacket(packet);
}

void LookAhead::Drop()
{
    packets.clear();
    failure = nullptr;
}

}  // namespace Quorva::Tool
