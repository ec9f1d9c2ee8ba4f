/// @file
/// Streams that pause while others go on.
#pragma once

#include "tools/Convert.Stages.h"
#include "tools/support/OpenedInput.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Quorva::Tool {

/// Looks ahead in an input for the next packet of a stream, by a demuxer of its own.
class StreamScout {
public:
    explicit StreamScout(std::string path) : path(std::move(path)) {}

    struct Found {
        int64_t time = 0;  ///< microseconds of the input
        bool isKey = false;
    };

    /// The first packet of the stream that is later than `time`, microseconds of the input; nothing when
    /// there is none or the input can't be read. Reads no further than to it.
    std::optional<Found> FindNext(int stream, int64_t time);

private:
    const std::string path;
    std::optional<DetectedInput> detected;  ///< opened once more: a stream has one position
    std::unique_ptr<OpenedInput> input;
};

/// Finds out which streams pause, so that their stages fill the pause while the other streams go on, and not
/// in one go when the stream goes on. A stream that has ended isn't filled, and neither is one whose packets
/// are only stored late.
class PauseWatch {
public:
    /// @param path     of the input, which is opened again once a stream pauses
    /// @param streams  to be filled
    PauseWatch(const std::string& path, const std::set<int>& streams);

    /// A packet has passed.
    /// @param shift  by which its times have been moved, microseconds
    /// @return       the streams to be filled now, and how far
    std::map<int, Pause> Account(const AVPacket& packet, AVRational timeBase, int64_t shift);

private:
    /// A stream. Times are microseconds, as they are moved.
    struct Track {
        int64_t last = AV_NOPTS_VALUE;       ///< the latest so far
        int64_t requested = AV_NOPTS_VALUE;  ///< the latest time that was asked to be filled
        bool isLookedFor = false;            ///< `next` is known
        std::optional<StreamScout::Found> next;
    };

    std::optional<Pause> PauseOf(int stream, Track& track, int64_t shift);

    StreamScout scout;
    std::map<int, Track> tracks;
    int64_t newest = AV_NOPTS_VALUE;  ///< of any stream
};

}  // namespace Quorva::Tool
