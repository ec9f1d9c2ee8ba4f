/// @file
/// FFmpeg's input and output over host streams, and packet reading that gets past damage.
///
/// Give the callbacks to `avio_alloc_context` together with AsOpaque(): the two for input, or the two for
/// output. The caller keeps the stream alive as long as the AVIOContext, and lets no other AVIOContext use it
/// meanwhile.
///
/// What a stream throws passes through the callback and through libavformat to whoever called that. What
/// FFmpeg's functions held then is lost, up to 200 KB as measured with six containers. A reading format
/// context can be closed as ever. A writing one must be left as it is, neither given a trailer nor freed:
/// FFmpeg would write behind its buffer, or free twice. Tessadrin.GuardedIO.h has neither of these problems.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/FoundationIO.h"

#include <cstdint>

namespace Quorva::Proc {

/// The opaque pointer that the callbacks expect: a `Core::IDataInput*` or `Core::IDataOutput*` as `void*`,
/// not owned. A pointer to a derived class may have another value, so don't let it become `void*` by itself.
inline void* AsOpaque(Core::IDataInput* stream) { return stream; }
inline void* AsOpaque(Core::IDataOutput* stream) { return stream; }

/// `read_packet` over an input.
///
/// @param opaque  a `Core::IDataInput*`
/// @return        bytes read, at most `size`; AVERROR_EOF at the end, for null and for a size below 1
/// @throws Core::IOException  the stream claims to have read more than `size`: see Core::CheckedRead().
TESSADRIN_API int FFReadCallback(void* opaque, uint8_t* buffer, int size);

/// `seek` over an input. SEEK_END goes to the end, whatever the offset.
///
/// @param opaque  a `Core::IDataInput*`
/// @param offset  bytes; a negative one is refused with every `whence`
/// @return        the new position, or the length for AVSEEK_SIZE; -1 when refused: null, any other `whence`
///                (those with AVSEEK_FORCE too), a position that 63 bits don't hold
TESSADRIN_API int64_t FFSeekRCallback(void* opaque, int64_t offset, int whence);

/// `write_packet` over an output.
///
/// @param opaque  a `Core::IDataOutput*`, which throws when it can't take all bytes
/// @return        `size`; -1 for null and for a size below 1
TESSADRIN_API int FFWriteCallback(void* opaque, const uint8_t* buffer, int size);

/// `seek` over an output: as FFSeekRCallback(), and SEEK_SET past the end extends the stream to there.
///
/// @param opaque  a `Core::IDataOutput*`
TESSADRIN_API int64_t FFSeekWCallback(void* opaque, int64_t offset, int whence);

/// `av_read_frame` that skips what can't be read: after an error it goes on 1024 bytes further, again and
/// again, until a packet comes or 100 KiB of the input or less are left. Needs a demuxer that finds its way
/// from any byte, and an input whose length is known; where it can't skip, the error is returned. The
/// smallest damage costs some 32 KiB, which FFmpeg reads through instead of seeking. It always returns, but a
/// hole of many megabytes takes as many attempts as it has kilobytes.
///
/// @param packet  as for `av_read_frame`: the caller unreferences it
/// @return        0, or the last error of `av_read_frame`; AVERROR(EINVAL) for null. The end, a request to
///                stop (AVERROR_EXIT), and ENOENT, ENXIO and ENODEV are returned at once; EAGAIN is tried
///                20 times more before skipping. AVERROR_EXIT takes the place of other errors once the
///                interrupt callback or the stream requests a stop (Tessadrin.Cancellation.h). Errors that a
///                demuxer hides are its own affair: some give the end instead.
TESSADRIN_API int av_read_frame_fixed(AVFormatContext* context, AVPacket* packet);

}  // namespace Quorva::Proc
