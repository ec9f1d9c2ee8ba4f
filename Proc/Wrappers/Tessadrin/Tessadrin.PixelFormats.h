/// @file
/// Pixel formats of the pipeline and of FFmpeg: one numbering, so that crossing over is a cast. Loading fails
/// when the two disagree; nothing here checks it again. No function throws but for want of memory, and all of
/// them accept any number, also one that neither side describes.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/MediaDescription.h"

#include <vector>

namespace Quorva::Proc {

/// The same number, supported by the pipeline or not; -1 is no format on both sides.
TESSADRIN_API PixFmt PixelFormatQuorvaFromFFMPEGSafe(AVPixelFormat format);

/// The same numbers in the same order; nothing is dropped, -1 included.
TESSADRIN_API std::vector<AVPixelFormat> PixelFormatsFFMPEGFromQuorva(const std::vector<PixFmt>& formats);

/// The formats that the pipeline supports, in the same order, repetitions included.
TESSADRIN_API std::vector<PixFmt> PixelFormatsQuorvaFromFFMPEG(const std::vector<AVPixelFormat>& formats);

/// The formats that the software scaler reads (`asInput`) and writes (`asOutput`), in the same order. With
/// neither asked for, all of them.
TESSADRIN_API std::vector<PixFmt> FilterPixelFormatsForSwScaling(std::vector<PixFmt> list, bool asInput,
                                                                 bool asOutput);

/// The formats of `first` that are in `second` too, in the order of `first` and as often as they stand there.
TESSADRIN_API std::vector<PixFmt> PixelFormatsIntersection(const std::vector<PixFmt>& first,
                                                           const std::vector<PixFmt>& second);

/// The format of `list` that loses least when `source` is converted to it, by FFmpeg's ranking of pairs. The
/// source itself wins when it is there; an unknown source (-1) takes the first format. Entries of -1 are
/// passed over.
///
/// @param hasAlpha  the alpha of `source` carries something, so that losing it counts
/// @param loss      may be null. In: FF_LOSS_* bits that don't matter. Out: what the last comparison says its
///                  winner loses, 0 when nothing was compared; left alone where no comparison decides (the
///                  source is in the list, or is -1).
/// @return          -1 when the list holds no format
TESSADRIN_API PixFmt FindBestPixelFormatOfList(const std::vector<PixFmt>& list, PixFmt source, bool hasAlpha,
                                               int* loss);
TESSADRIN_API PixFmt FindBestPixelFormatOfList(const std::vector<PixFmt>& list, AVPixelFormat source,
                                               bool hasAlpha, int* loss);

/// Bytes in one row of one plane, without padding.
///
/// @param width  pixels of the picture, not of the plane
/// @param plane  0 to 3
/// @return       0 for a plane that the format doesn't have; FFmpeg's negative code unchanged where it
///               refuses, AVERROR(EINVAL) for a plane outside 0 to 3
TESSADRIN_API int GetLineSize(PixFmt format, int width, int plane);

/// FFmpeg's description, in static memory; null for a number that FFmpeg doesn't describe.
TESSADRIN_API const AVPixFmtDescriptor* GetPixelFormatDescription(AVPixelFormat format);

/// Bits of the deepest component; 0 for formats in device memory, for null and for a number that FFmpeg
/// doesn't describe.
TESSADRIN_API int GetPixelChannelMaximalBits(const AVPixFmtDescriptor* descriptor);
TESSADRIN_API int GetPixelChannelMaximalBits(AVPixelFormat format);

/// Whether FFmpeg flags the format as one with alpha, as it does palettes; false for a number that it doesn't
/// describe.
TESSADRIN_API bool HasAlpha(AVPixelFormat format);

/// Whether the software scaler reads or writes the format; false for a number that FFmpeg doesn't describe.
TESSADRIN_API bool IsSwScalingSupportedAsInput(AVPixelFormat format);
TESSADRIN_API bool IsSwScalingSupportedAsOutput(AVPixelFormat format);

}  // namespace Quorva::Proc
