// Which decoder or encoder serves a codec for one family of back-ends, as data. Ascending by FFmpeg's
// identifier; a pair without a row gets FFmpeg's default for the codec.
#pragma once

#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "host/MediaDescription.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace Quorva::Proc::Details {

struct SelectionRow {
    AVCodecID id;
    const std::string*
        implementation;  ///< the pipeline's constant; its text is copied when the library loads
    const char* name;    ///< as avcodec_find_decoder_by_name() or its encoder twin take it
};

// clang-format off
inline constexpr SelectionRow decoderRows[] = {
    {AV_CODEC_ID_MPEG1VIDEO, &ImplNames::NVDEC,      "mpeg1video"       },
    {AV_CODEC_ID_MPEG2VIDEO, &ImplNames::NVDEC,      "mpeg2video"       },
    {AV_CODEC_ID_MPEG2VIDEO, &ImplNames::DIRECTX,    "mpeg2video"       },
    {AV_CODEC_ID_MJPEG,      &ImplNames::NVDEC,      "mjpeg"            },
    {AV_CODEC_ID_H264,       &ImplNames::NVDEC,      "h264"             },
    {AV_CODEC_ID_H264,       &ImplNames::DIRECTX,    "h264"             },
    {AV_CODEC_ID_VP8,        &ImplNames::FFMPEG,     "libvpx"           },
    {AV_CODEC_ID_VP8,        &ImplNames::NVDEC,      "vp8"              },
    {AV_CODEC_ID_VP9,        &ImplNames::FFMPEG,     "libvpx-vp9"       },
    {AV_CODEC_ID_VP9,        &ImplNames::NVDEC,      "vp9"              },
    {AV_CODEC_ID_VP9,        &ImplNames::DIRECTX,    "vp9"              },
    {AV_CODEC_ID_HEVC,       &ImplNames::NVDEC,      "hevc"             },
    {AV_CODEC_ID_HEVC,       &ImplNames::DIRECTX,    "hevc"             },
    {AV_CODEC_ID_AV1,        &ImplNames::FFMPEG,     "libdav1d"         },
    {AV_CODEC_ID_AV1,        &ImplNames::NVDEC,      "av1"              },
    {AV_CODEC_ID_AV1,        &ImplNames::DIRECTX,    "av1"              },
    {AV_CODEC_ID_AMR_NB,     &ImplNames::FFMPEG,     "libopencore_amrnb"},
    {AV_CODEC_ID_AMR_WB,     &ImplNames::FFMPEG,     "libopencore_amrwb"},
    {AV_CODEC_ID_AAC,        &ImplNames::FFMPEG,     "aac"              },
    {AV_CODEC_ID_AAC,        &ImplNames::FFMPEG_FDK, "libfdk_aac"       },
    {AV_CODEC_ID_SSA,        &ImplNames::FFMPEG,     "ass"              },
    {AV_CODEC_ID_ASS,        &ImplNames::FFMPEG,     "ass"              },
};

/// Families whose decoders have to deliver frames in the memory of a device.
struct HardwareRow {
    const std::string* implementation;
    AVPixelFormat format;
};

inline constexpr HardwareRow hardwareRows[] = {
    {&ImplNames::NVDEC,   AV_PIX_FMT_CUDA },
    {&ImplNames::DIRECTX, AV_PIX_FMT_D3D11},
};

inline constexpr SelectionRow encoderRows[] = {
    {AV_CODEC_ID_FLV1,   &ImplNames::FFMPEG, "flv"       },
    {AV_CODEC_ID_H264,   &ImplNames::FFMPEG, "libx264"   },
    {AV_CODEC_ID_H264,   &ImplNames::QSV,    "h264_qsv"  },
    {AV_CODEC_ID_H264,   &ImplNames::NVENC,  "h264_nvenc"},
    {AV_CODEC_ID_H264,   &ImplNames::AMF,    "h264_amf"  },
    {AV_CODEC_ID_VP9,    &ImplNames::QSV,    "vp9_qsv"   },
    {AV_CODEC_ID_HEVC,   &ImplNames::FFMPEG, "libx265"   },
    {AV_CODEC_ID_HEVC,   &ImplNames::QSV,    "hevc_qsv"  },
    {AV_CODEC_ID_HEVC,   &ImplNames::NVENC,  "hevc_nvenc"},
    {AV_CODEC_ID_HEVC,   &ImplNames::AMF,    "hevc_amf"  },
    {AV_CODEC_ID_AV1,    &ImplNames::FFMPEG, "libsvtav1" },
    {AV_CODEC_ID_AV1,    &ImplNames::QSV,    "av1_qsv"   },
    {AV_CODEC_ID_AV1,    &ImplNames::NVENC,  "av1_nvenc" },
    {AV_CODEC_ID_AV1,    &ImplNames::AMF,    "av1_amf"   },
    {AV_CODEC_ID_AAC,    &ImplNames::FFMPEG, "libfdk_aac"},
    {AV_CODEC_ID_VORBIS, &ImplNames::FFMPEG, "libvorbis" },
    {AV_CODEC_ID_SSA,    &ImplNames::FFMPEG, "ass"       },
    {AV_CODEC_ID_ASS,    &ImplNames::FFMPEG, "ass"       },
};
// clang-format on

static_assert(std::size(decoderRows) == 22 && std::ranges::is_sorted(decoderRows, {}, &SelectionRow::id));
static_assert(std::size(encoderRows) == 18 && std::ranges::is_sorted(encoderRows, {}, &SelectionRow::id));
static_assert(std::size(hardwareRows) == 2);
static_assert(AV_PIX_FMT_CUDA == 117 && AV_PIX_FMT_D3D11 == 171);

}  // namespace Quorva::Proc::Details
