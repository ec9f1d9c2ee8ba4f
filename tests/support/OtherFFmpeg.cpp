// An FFmpeg that differs, as far as programs made with this file are concerned: their own functions come
// before those of libraries. The environment's OTHER_FFMPEG says how:
//
//   wrong    RGB24 has four components
//   missing  there is no NV12
//   nomov    there is no demuxer for MOV and its kin
//   noflac   there is none for FLAC
//   newer    libavutil is of a later minor version
//
// Anything else: it doesn't differ. When the network layer is started and ended is told on standard error.
#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

std::string_view GetMode()
{
    const char* const mode = std::getenv("OTHER_FFMPEG");
    return mode ? mode : "";
}

template <class Function>
Function* Next(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

TESSADRIN_API const AVPixFmtDescriptor* av_pix_fmt_desc_get(AVPixelFormat format)
{
    const AVPixFmtDescriptor* real = Next(av_pix_fmt_desc_get, "av_pix_fmt_desc_get")(format);
    if (GetMode() == "missing" && format == AV_PIX_FMT_NV12)
        return nullptr;
    if (GetMode() == "wrong" && format == AV_PIX_FMT_RGB24) {
        static AVPixFmtDescriptor wrong;
        wrong = *real;
        wrong.nb_components = 4;
        return &wrong;
    }
    return real;
}

TESSADRIN_API const AVInputFormat* av_demuxer_iterate(void** position)
{
    const auto next = Next(av_demuxer_iterate, "av_demuxer_iterate");
    const AVInputFormat* demuxer = next(position);
    const auto isHidden = [](std::string_view name) {
        return (GetMode() == "nomov" && name.starts_with("mov,")) ||
               (GetMode() == "noflac" && name == "flac");
    };
    while (demuxer && isHidden(demuxer->name))
        demuxer = next(position);
    return demuxer;
}

TESSADRIN_API unsigned avutil_version(void)
{
    return Next(avutil_version, "avutil_version")() + (GetMode() == "newer" ? 1u << 8 : 0);
}

TESSADRIN_API int avformat_network_init(void)
{
    std::fputs("network on\n", stderr);
    return Next(avformat_network_init, "avformat_network_init")();
}

TESSADRIN_API int avformat_network_deinit(void)
{
    std::fputs("network off\n", stderr);
    return Next(avformat_network_deinit, "avformat_network_deinit")();
}

}  // extern "C"
