/// @file
/// Pixel formats of the pipeline and of FFmpeg: one numbering, so that crossing over is a cast.
#pragma once

#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/MediaDescription.h"

#include <vector>

namespace Quorva::Proc {

TESSADRIN_API PixFmt PixelFormatQuorvaFromFFMPEGSafe(AVPixelFormat format);
TESSADRIN_API std::vector<AVPixelFormat> PixelFormatsFFMPEGFromQuorva(const std::vector<PixFmt>& formats);
TESSADRIN_API std::vector<PixFmt> PixelFormatsQuorvaFromFFMPEG(const std::vector<AVPixelFormat>& formats);
TESSADRIN_API std::vector<PixFmt> FilterPixelFormatsForSwScaling(std::vector<PixFmt> list, bool asInput,
                                                                 bool asOutput);
TESSADRIN_API std::vector<PixFmt> PixelFormatsIntersection(const std::vector<PixFmt>& first,
                                                           const std::vector<PixFmt>& second);
TESSADRIN_API PixFmt FindBestPixelFormatOfList(const std::vector<PixFmt>& list, PixFmt source, bool hasAlpha,
                                               int* loss);
TESSADRIN_API PixFmt FindBestPixelFormatOfList(const std::vector<PixFmt>& list, AVPixelFormat source,
                                               bool hasAlpha, int* loss);
TESSADRIN_API int GetLineSize(PixFmt format, int width, int plane);
TESSADRIN_API const AVPixFmtDescriptor* GetPixelFormatDescription(AVPixelFormat format);
TESSADRIN_API int GetPixelChannelMaximalBits(const AVPixFmtDescriptor* descriptor);
TESSADRIN_API int GetPixelChannelMaximalBits(AVPixelFormat format);
TESSADRIN_API bool HasAlpha(AVPixelFormat format);
TESSADRIN_API bool IsSwScalingSupportedAsInput(AVPixelFormat format);
TESSADRIN_API bool IsSwScalingSupportedAsOutput(AVPixelFormat format);

}  // namespace Quorva::Proc
