/// @file
/// Packets as raw pointers whose memory this library allocates and releases.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <cstddef>

namespace Quorva::Proc {

/// A packet with room for `size` bytes, FFmpeg's zeroed AV_INPUT_BUFFER_PADDING_SIZE bytes behind them not
/// counted.
///
/// @param size  bytes, left unwritten; 0 gives a packet without payload: `data` null
/// @return      owned by the caller, who gives it to ReleasePacket() and not to av_packet_free(); never null
/// @throws Core::MemoryException  no memory, or more bytes than an FFmpeg packet can hold (INT_MAX less the
///                                padding); its size is what was asked for
TESSADRIN_API AVPacket* CreatePacket(size_t size);

/// A second packet with the same properties that shares the payload of the first; a payload that isn't
/// reference counted is copied.
///
/// @return  as CreatePacket(); null for null
/// @throws Core::MemoryException  no memory; its size is that of the payload, or of the packet's own
///                                structure
TESSADRIN_API AVPacket* CopyPacket(const AVPacket* source);

/// Releases what CreatePacket() or CopyPacket() made and sets `*packet` to null. Accepts null at both levels.
TESSADRIN_API void ReleasePacket(AVPacket** packet);

}  // namespace Quorva::Proc
