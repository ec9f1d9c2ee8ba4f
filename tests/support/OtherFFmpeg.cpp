// An FFmpeg that differs, as far as programs made with this file are concerned: their own functions come
// before those of libraries. The environment's OTHER_FFMPEG says how:
//
//   wrong     RGB24 has four components
//   unnamed   RGB24 has four components and no name
//   missing   there is no NV12
//   nomov     there is no demuxer for MOV and its kin
//   noflac    there is none for FLAC
//   nameless  the first codec, demuxer and muxer have no name
//   newer     libavutil is of a later minor version
//
// Anything else: it doesn't differ. When the network layer is started and ended is told on standard error.
#include "Proc/Wrappers/Tessadrin/Export.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
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

/// In place of the first of a list: the same without its name, and with the private fields that follow it.
template <class T>
const T* WithoutName(const T* first)
{
    alignas(T) static unsigned char copy[256];
    std::memcpy(copy, static_cast<const void*>(first), sizeof copy);
    auto* const nameless = reinterpret_cast<T*>(copy);
    nameless->name = nullptr;
    return nameless;
}

/// The next of a list of FFmpeg's.
template <class T>
const T* Iterate(const T* (*next)(void**), void** position)
{
    const bool isFirst = !*position;
    const T* const entry = next(position);
    return isFirst && GetMode() == "nameless" ? WithoutName(entry) : entry;
}

}  // namespace

extern "C" {

TESSADRIN_API const AVCodec* av_codec_iterate(void** position)
{
    return Iterate(Next(av_codec_iterate, "av_codec_iterate"), position);
}

TESSADRIN_API const AVOutputFormat* av_muxer_iterate(void** position)
{
    return Iterate(Next(av_muxer_iterate, "av_muxer_iterate"), position);
}

TESSADRIN_API const AVPixFmtDescriptor* av_pix_fmt_desc_get(AVPixelFormat format)
{
    const AVPixFmtDescriptor* real = Next(av_pix_fmt_desc_get, "av_pix_fmt_desc_get")(format);
    if (GetMode() == "missing" && format == AV_PIX_FMT_NV12)
        return nullptr;
    if ((GetMode() == "wrong" || GetMode() == "unnamed") && format == AV_PIX_FMT_RGB24) {
        static AVPixFmtDescriptor wrong;
        wrong = *real;
        wrong.nb_components = 4;
        if (GetMode() == "unnamed")
            wrong.name = nullptr;
        return &wrong;
    }
    return real;
}

TESSADRIN_API const AVInputFormat* av_demuxer_iterate(void** position)
{
    const auto next = Next(av_demuxer_iterate, "av_demuxer_iterate");
    const AVInputFormat* demuxer = Iterate(next, position);
    const auto isHidden = [](std::string_view name) {
        return (GetMode() == "nomov" && name.starts_with("mov,")) ||
               (GetMode() == "noflac" && name == "flac");
    };
    while (demuxer && demuxer->name && isHidden(demuxer->name))
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
