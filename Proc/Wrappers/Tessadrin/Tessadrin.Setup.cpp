#include "Proc/Wrappers/Tessadrin/Details/FFmpegSetup.h"
#include "Proc/Wrappers/Tessadrin/Details/RequiredKey.h"
#include "Proc/Wrappers/Tessadrin/FFmpeg.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.Errors.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.LogBridge.h"
#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"

#include <boost/exception/get_error_info.hpp>

#include <algorithm>
#include <exception>
#include <string_view>

namespace Quorva::Proc::Details {

// Objects of these types are held by value; CheckRuntimeVersion() guards the ones that FFmpeg writes.
static_assert(sizeof(AVPacket) == 104);
static_assert(sizeof(AVFrame) == 440);

namespace {

/// FFmpeg gives PAL8 an alpha flag, which says nothing about a palette.
bool IsAlphaCompared(PixFmt format) { return static_cast<int>(format) != AV_PIX_FMT_PAL8; }

bool Agree(const PixFmtDescription& ours, const AVPixFmtDescriptor& theirs)
{
    const auto sameFlag = [&](uint32_t flag, uint64_t theirFlag) {
        return ((ours.flags & flag) != 0) == ((theirs.flags & theirFlag) != 0);
    };
    return ours.components == theirs.nb_components && ours.chromaShiftX == theirs.log2_chroma_w &&
           ours.chromaShiftY == theirs.log2_chroma_h &&
           sameFlag(PixFmtDescription::FLAG_PLANAR, AV_PIX_FMT_FLAG_PLANAR) &&
           sameFlag(PixFmtDescription::FLAG_RGB, AV_PIX_FMT_FLAG_RGB) &&
           (!IsAlphaCompared(ours.format) || sameFlag(PixFmtDescription::FLAG_ALPHA, AV_PIX_FMT_FLAG_ALPHA));
}

}  // namespace

void CheckRuntimeVersion(unsigned version)
{
    if (AV_VERSION_MAJOR(version) != LIBAVUTIL_VERSION_MAJOR ||
        AV_VERSION_MINOR(version) > LIBAVUTIL_VERSION_MINOR)
        RaiseLogicError(fmt::format("Compiled for libavutil {}.{}, but loaded with {}.{}",
                                    LIBAVUTIL_VERSION_MAJOR, LIBAVUTIL_VERSION_MINOR,
                                    AV_VERSION_MAJOR(version), AV_VERSION_MINOR(version)));
}

void CheckPixelFormats(const std::vector<PixFmtDescription>& descriptions)
{
    std::ranges::for_each(descriptions, [](const PixFmtDescription& ours) {
        const AVPixFmtDescriptor* theirs = GetPixelFormatDescription(static_cast<AVPixelFormat>(ours.format));
        if (theirs && Agree(ours, *theirs))
            return;
        const char* name = "none";
        if (theirs)
            name = theirs->name ? theirs->name : "unnamed";
        // Compilers spell the name of a lambda in more than one way; records have this one.
        RaiseLogicError(
            fmt::format("Bad pixel format descriptions: {} (QUORVA) != {} (FFMPEG)", ours.GetName(), name),
            "operator ()");
    });
}

std::string DescribeLoadFailure()
{
    std::string reason = "an exception of no known class";
    try {
        throw;
    } catch (const std::exception& e) {
        reason =
            std::string_view(e.what()).substr(0, std::string_view(e.what()).find('\n'));  // less the stack
        if (const std::string* const key = boost::get_error_info<TagMissingKey>(e))
            reason += fmt::format(" (this FFmpeg has nothing for '{}')", *key);
    } catch (...) {
        // said above
    }
    return reason +
           "; install the FFmpeg 7.1 it was built with, or build it again with this one "
           "(`tessadrin doctor` tells more)";
}

FFmpegSetup::FFmpegSetup()
{
    CheckRuntimeVersion(avutil_version());
    if (loads.AddRefImpl() != 1)
        return;
    {
        const std::lock_guard guard(lock);
        av_log_set_callback(FFMpegLogCallback);
        // Not examined: files are read through the pipeline's streams, and FFmpeg's own protocols report for
        // themselves what they lack.
        avformat_network_init();
    }
    CheckPixelFormats(PixFmtDescription::GetSupportedList());
}

FFmpegSetup::~FFmpegSetup()
{
    if (loads.ReleaseImpl() == 0)
        avformat_network_deinit();  // returns nothing but 0
}

}  // namespace Quorva::Proc::Details
