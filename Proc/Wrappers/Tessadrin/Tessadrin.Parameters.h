/// @file
/// Codec and stream parameters between the pipeline's descriptions and FFmpeg's.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/FoundationIO.h"
#include "host/MediaDescription.h"
#include "host/ProcessingSupport.h"

namespace Quorva::Proc {

/// Describes `codec` in FFmpeg's terms. Writes what the description has and leaves the other fields: pass
/// parameters that are fresh, or to be overwritten field by field. Video gets no bit rate.
///
/// Display matrix and cropping become coded side data; where FFmpeg can't store them, an ERROR record says so
/// and the parameters are usable without.
/// @throws Conf::FormatException  FFmpeg has no codec of that text; nothing is written.
/// @throws std::logic_error       the channel layout is none the pipeline knows; earlier fields are written.
/// @throws Core::MemoryException  as SetExtradata().
TESSADRIN_API void FormatCodecToCodecParameters(const boost::intrusive_ptr<const Conf::IFormatCodec>& codec,
                                                AVCodecParameters* parameters);

/// Replaces the extradata by a copy of `extradata` with FFmpeg's padding behind it, or by none when the blob
/// is null or empty.
/// @throws Core::MemoryException  it cannot be allocated, or is larger than FFmpeg can count; then there is
///         none.
TESSADRIN_API void SetExtradata(AVCodecParameters* parameters,
                                const boost::intrusive_ptr<const IBlob>& extradata);

/// The codec's quality as a quantizer of its encoder: MIN_QUALITY to MAX_QUALITY spread evenly over
/// MIN_QUALITY to `maxQuantizer`, qualities beyond either end taken as that end.
/// @param maxQuantizer  receives the encoder's largest quantizer: 63 for VP8, VP9 and AV1, otherwise 51
TESSADRIN_API int64_t GetProperQuality(const boost::intrusive_ptr<const Conf::IFormatCodec>& codec,
                                       int64_t& maxQuantizer);

/// Bits per second: computed for plain PCM, otherwise what the parameters say. A product beyond 64 bits, as
/// from a damaged header, ends at INT64_MAX or INT64_MIN.
TESSADRIN_API int64_t GetAudioBitrate(const AVCodecParameters* parameters);

/// The shape of a stream's pixels, num : den, reduced; 1 : 1 when neither the stream nor its parameters say.
TESSADRIN_API void GetStreamAspect(const AVStream* stream, int64_t& num, int64_t& den);

/// Gives `frame` the geometry and pixel format of `video`. No buffers are allocated.
TESSADRIN_API void FillAvFrameParams(AVFrame& frame, const IDataVideo& video);

/// Reads the cropping that a decoder or demuxer found.
/// @return  false, with `cropping` unchanged, when there is none
TESSADRIN_API bool GetFrameCroppingFromCodecContext(Conf::FrameCropping& cropping, AVCodecContext* context);
TESSADRIN_API bool GetFrameCroppingFromCodecParameters(Conf::FrameCropping& cropping,
                                                       AVCodecParameters* parameters);

}  // namespace Quorva::Proc
