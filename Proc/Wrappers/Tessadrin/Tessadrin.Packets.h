/// @file
/// Packets as raw pointers whose memory this library allocates and releases.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <cstddef>

namespace Quorva::Proc {

TESSADRIN_API AVPacket* CreatePacket(size_t size);
TESSADRIN_API AVPacket* CopyPacket(const AVPacket* source);
TESSADRIN_API void ReleasePacket(AVPacket** packet);

}  // namespace Quorva::Proc
