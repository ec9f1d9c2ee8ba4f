/// @file
/// Time of a stream, in its own time base, and global time, in microseconds; and fractions in lowest terms.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <cstdint>

namespace Quorva::Proc {

/// a * b / c to the nearest integer, halves away from zero. The product may pass 64 bits.
/// @return  INT64_MIN when the result passes 64 bits, b is negative, or c is not positive
TESSADRIN_API int64_t AvRescale(int64_t a, int64_t b, int64_t c);

/// Microseconds as ticks of `timeBase`, and ticks as microseconds; rounded as AvRescale() does.
///
/// @param timeBase  seconds per tick of the stream: positive
/// @return          AV_NOPTS_VALUE for AV_NOPTS_VALUE, and for a result that passes 64 bits
TESSADRIN_API int64_t global_to_stream(int64_t timestamp, const AVRational& timeBase);
TESSADRIN_API int64_t stream_to_global(int64_t timestamp, const AVRational& timeBase);

/// Brings num/den to lowest terms in place; each keeps its sign. With one of them 0, a positive other one
/// becomes 1 and a negative one stays as it is; 0/0 stays, and so does a pair of INT64_MIN.
TESSADRIN_API void reduce(unsigned int& num, unsigned int& den);
TESSADRIN_API void reduce(int64_t& num, int64_t& den);

}  // namespace Quorva::Proc
