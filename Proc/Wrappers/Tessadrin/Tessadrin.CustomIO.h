/// @file
/// FFmpeg's input and output over host streams, and packet reading that gets past damage.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

namespace Quorva::Proc {

TESSADRIN_API int FFReadCallback(void* opaque, uint8_t* buffer, int size);
TESSADRIN_API int64_t FFSeekRCallback(void* opaque, int64_t offset, int whence);
TESSADRIN_API int FFWriteCallback(void* opaque, const uint8_t* buffer, int size);
TESSADRIN_API int64_t FFSeekWCallback(void* opaque, int64_t offset, int whence);
TESSADRIN_API int av_read_frame_fixed(AVFormatContext* context, AVPacket* packet);

}  // namespace Quorva::Proc
