/// @file
/// Stream time and global time.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

namespace Quorva::Proc {

TESSADRIN_API int64_t AvRescale(int64_t a, int64_t b, int64_t c);
TESSADRIN_API int64_t global_to_stream(int64_t timestamp, const AVRational& timeBase);
TESSADRIN_API int64_t stream_to_global(int64_t timestamp, const AVRational& timeBase);
TESSADRIN_API void reduce(unsigned int& num, unsigned int& den);
TESSADRIN_API void reduce(int64_t& num, int64_t& den);

}  // namespace Quorva::Proc
