/// @file
/// A bound for the packets that FFmpeg's muxers hold back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace Quorva::Tool {

/// Estimates what a muxer holds back: to write packets in the order of their times, it waits for each stream
/// to get beyond a packet, or for any stream to get 10 seconds beyond it. Raw pictures can be gigabytes then.
class InterleavingQueue {
public:
    static constexpr size_t MOST_PACKETS = 8192;
    static constexpr uint64_t MOST_BYTES = 64 << 20;
    static constexpr int64_t LONGEST = 10'000'000;  ///< microseconds; FFmpeg's default

    /// @param awaited  of each stream, whether the muxer waits for its packets
    explicit InterleavingQueue(const std::vector<bool>& awaited);

    /// A packet goes to the muxer.
    /// @param time  of decoding, microseconds
    void Add(size_t stream, int64_t time, uint64_t size);
    /// Whether the muxer should write all that it holds.
    bool IsFull() const { return packets.size() >= MOST_PACKETS || bytes >= MOST_BYTES; }
    /// It did.
    void Clear();

private:
    struct Packet {
        int64_t time;
        uint64_t size;
    };
    std::deque<Packet> packets;
    uint64_t bytes = 0;
    std::vector<int64_t> newest;  ///< time of each stream; INT64_MAX where none is awaited
    int64_t latest = 0;           ///< of all
};

}  // namespace Quorva::Tool
