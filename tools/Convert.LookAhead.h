/// @file
/// The packets at the beginning of an input, read before the output's time 0 is fixed.
#pragma once

#include "Proc/Wrappers/Tessadrin/Tessadrin.Packets.h"
#include "tools/Convert.h"
#include "tools/support/StreamDecoder.h"

#include <deque>
#include <exception>
#include <optional>
#include <set>

namespace Quorva::Tool {

/// Reads the beginning of an input and hands it out again.
///
/// Codecs that reorder pictures may store one before others that are shown earlier. FFmpeg's start time is
/// that of the first picture stored, so the beginning has to be looked at.
class LookAhead {
public:
    /// @param input    at its beginning; outlives the object
    /// @param streams  numbers of the streams whose pictures count
    LookAhead(OpenedInput& input, std::set<int> streams) : input(input), unsettled(std::move(streams)) {}

    /// Reads on until no earlier picture can follow, or for a bounded number of packets and bytes.
    /// @return  the earliest time at which a picture is shown, microseconds of the input; nothing when
    /// unknown
    std::optional<int64_t> FindFirstPicture();

    /// As OpenedInput::ReadPacket(), beginning with what was read ahead.
    bool ReadPacket(AVPacket* packet);
    /// Drops what was read ahead. To be called after a seek.
    void Drop();

private:
    void Look(const AVPacket& packet);

    OpenedInput& input;
    std::set<int> unsettled;
    int pictures = 0;              ///< looked at
    std::optional<int64_t> first;  ///< microseconds
    std::deque<PacketPointer> packets;
    std::exception_ptr failure;  ///< of reading ahead; due behind the packets
};

}  // namespace Quorva::Tool
