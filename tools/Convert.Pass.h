/// @file
/// One way of the input through the stages into the output.
#pragma once

#include "tools/Convert.Output.h"
#include "tools/Convert.Pipeline.h"
#include "tools/Convert.Subtitles.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace Quorva::Tool {

/// Everything that a pass needs. One thread reads packets, hands them to Take(), and thereby writes the
/// output.
struct Pass {
    Pass() = default;
    Pass(const Pass&) = delete;
    Pass& operator=(const Pass&) = delete;
    ~Pass() { steps.Abandon(); }  // threads of the paths may wait for room there

    /// Hands a packet to the path of its stream, once that has room.
    /// @param packet  may be emptied
    /// @return        whether nothing more is wanted
    bool Take(AVPacket& packet);
    /// Writes what has come so far, and waits until no more than `ahead` packets of the input are at work,
    /// and no more of the output waits than may.
    /// @param next  also waits until this one has room; null: for nothing else
    /// @return      whether nothing more is wanted. What was read ahead behind that point is dropped.
    bool Write(size_t ahead, Path* next = nullptr);
    /// Hands on what is on the screen when the output begins.
    void TakeEarlier();
    /// Writes everything that is still held, or what is complete when the conversion is overdue.
    void Finish();
    PacketSink& GetSink() { return output ? static_cast<PacketSink&>(*output) : nowhere; }

    std::optional<Output> output;  ///< none in a first pass of two
    NoSink nowhere;
    Steps steps;
    std::vector<std::unique_ptr<Path>> owned;  ///< null for streams that take no part
    std::map<int, Path*> paths;                ///< by input stream
    std::set<int> awaited;                     ///< input streams whose end is the end
    std::map<int, uint64_t> read;              ///< packets, by input stream
    EarlierSubtitles earlier;                  ///< on the screen when the output begins
};

}  // namespace Quorva::Tool
