// The muxers the pipeline uses, as data.
#pragma once

#include "host/MediaDescription.h"

#include <iterator>
#include <string>
#include <string_view>

namespace Quorva::Proc::Details {

struct OutputRow {
    const std::string* muxer;   ///< FFmpeg's name of it
    std::string_view mimeType;  ///< which of several muxers of that name; empty when there is one
    const std::string* format;  ///< what that one writes; null when it is the muxer's name
};

/// A format that another one's muxer writes.
struct OutputAliasRow {
    const std::string* format;
    const std::string* writer;
};

// clang-format off
using File = Conf::IFormatFile;

#define MUXER(constant) OutputRow{&File::FORMAT_##constant, {}, nullptr}
inline constexpr OutputRow outputRows[] = {
    MUXER(3G2),
    MUXER(3GP),
    MUXER(AAC),
    MUXER(AC3),
    MUXER(ADX),
    MUXER(AIFF),
    MUXER(AMR),
    MUXER(APNG),
    MUXER(ASF),
    MUXER(ASS),
    MUXER(AU),
    MUXER(AVI),
    MUXER(AVIF),
    MUXER(CAF),
    MUXER(DTS),
    MUXER(DV),
    MUXER(DVD),
    MUXER(EAC3),
    MUXER(F32BE),
    MUXER(F32LE),
    MUXER(F64BE),
    MUXER(F64LE),
    MUXER(FLAC),
    MUXER(FLV),
    MUXER(GIF),
    MUXER(H261),
    MUXER(H263),
    MUXER(H264),
    MUXER(IMAGE2),
    MUXER(IMAGE2PIPE),
    MUXER(IPOD),
    {&File::FORMAT_MATROSKA, "audio/x-matroska", &File::FORMAT_MKA},
    {&File::FORMAT_MATROSKA, "video/x-matroska", &File::FORMAT_MATROSKA},
    MUXER(MJPEG),
    MUXER(MOV),
    MUXER(MP3),
    MUXER(MP4),
    MUXER(MPEG),
    MUXER(MPEGTS),
    MUXER(MPJPEG),
    MUXER(MXF),
    MUXER(NULL),
    MUXER(OGG),
    MUXER(OGV),
    MUXER(OPUS),
    MUXER(PSP),
    MUXER(RAWVIDEO),
    MUXER(S16BE),
    MUXER(S16LE),
    MUXER(S24BE),
    MUXER(S24LE),
    MUXER(S32BE),
    MUXER(S32LE),
    MUXER(S8),
    MUXER(SRT),
    MUXER(SVCD),
    MUXER(SWF),
    MUXER(TRUEHD),
    MUXER(U16BE),
    MUXER(U16LE),
    MUXER(U24BE),
    MUXER(U24LE),
    MUXER(U32BE),
    MUXER(U32LE),
    MUXER(U8),
    MUXER(VCD),
    MUXER(VOB),
    MUXER(VOC),
    MUXER(WAV),
    MUXER(WEBM),
};
#undef MUXER
static_assert(std::size(outputRows) == 70);

#define ALIAS(format, writer) OutputAliasRow{&File::FORMAT_##format, &File::FORMAT_##writer}
inline constexpr OutputAliasRow outputAliasRows[] = {
    ALIAS(BMP,          IMAGE2),
    ALIAS(DPX,          IMAGE2),
    ALIAS(EXR,          IMAGE2),
    ALIAS(GEM,          IMAGE2),
    ALIAS(JPEG,         IMAGE2),
    ALIAS(JPEG2000,     IMAGE2),
    ALIAS(JPEGLS,       IMAGE2),
    ALIAS(JPEGXL,       IMAGE2),
    ALIAS(PAM,          IMAGE2),
    ALIAS(PBM,          IMAGE2),
    ALIAS(PCX,          IMAGE2),
    ALIAS(PFM,          IMAGE2),
    ALIAS(PGM,          IMAGE2),
    ALIAS(PGMYUV,       IMAGE2),
    ALIAS(PHM,          IMAGE2),
    ALIAS(PIX,          IMAGE2),
    ALIAS(PNG,          IMAGE2),
    ALIAS(PPM,          IMAGE2),
    ALIAS(QOI,          IMAGE2),
    ALIAS(RADIANCE_HDR, IMAGE2),
    ALIAS(SGI,          IMAGE2),
    ALIAS(SUNRAST,      IMAGE2),
    ALIAS(TARGA,        IMAGE2),
    ALIAS(TIFF,         IMAGE2),
    ALIAS(VBN,          IMAGE2),
    ALIAS(WBMP,         IMAGE2),
    ALIAS(XBM,          IMAGE2),
    ALIAS(XFACE,        IMAGE2),
    ALIAS(MPEG1VIDEO,   MPEG),
    ALIAS(WTV,          MPEG),
    ALIAS(MPEG2TS,      MPEGTS),
    ALIAS(MPEG2VIDEO,   VOB),
    ALIAS(WMA,          ASF),
    ALIAS(WMV,          ASF),
    ALIAS(F4A,          IPOD),
    ALIAS(M4A,          IPOD),
    ALIAS(M4B,          IPOD),
    ALIAS(M4R,          IPOD),
    ALIAS(M4V,          IPOD),
    ALIAS(SSA,          ASS),
};
#undef ALIAS
static_assert(std::size(outputAliasRows) == 40);
// clang-format on

}  // namespace Quorva::Proc::Details
