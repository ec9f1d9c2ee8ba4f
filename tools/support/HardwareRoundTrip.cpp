#include "tools/support/HardwareRoundTrip.h"

#include "Proc/Wrappers/Tessadrin/Tessadrin.PixelFormats.h"
#include "tools/support/Failure.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace Quorva::Tool {

namespace {

[[noreturn]] void ThrowUnsupported(const std::string& what)
{
    Proc::Details::Raise(Proc::ProcException()
                         << TagDescription(what) << TagFailureKind(FailureKind::Unsupported));
}

AVHWDeviceType TypeNamed(const std::string& name)
{
    const AVHWDeviceType type = av_hwdevice_find_type_by_name(name.c_str());
    if (type != AV_HWDEVICE_TYPE_NONE)
        return type;
    std::vector<const char*> names;
    for (AVHWDeviceType each = AV_HWDEVICE_TYPE_NONE;
         (each = av_hwdevice_iterate_types(each)) != AV_HWDEVICE_TYPE_NONE;)
        names.push_back(av_hwdevice_get_type_name(each));
    ThrowUnsupported(
        fmt::format("no hardware devices '{}'; this FFmpeg has {}", name, fmt::join(names, ", ")));
}

std::string NamesOf(const std::vector<AVPixelFormat>& formats)
{
    std::vector<std::string_view> names;
    for (const AVPixelFormat format : formats)
        if (const char* name = av_get_pix_fmt_name(format))
            names.push_back(name);
    return fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace

HardwareRoundTrip::HardwareRoundTrip(const std::string& type)
    : type(type), device(TypeNamed(type), nullptr, nullptr, 0)
{
}

Proc::SafeBuffer& HardwareRoundTrip::PoolFor(const AVFrame& picture)
{
    const auto [place, isNew] = pools.try_emplace({picture.format, picture.width, picture.height});
    if (!isNew)
        return place->second;
    try {
        const auto format = static_cast<AVPixelFormat>(picture.format);
        const auto constraints = device.GetFramesConstraints(nullptr);
        if (constraints &&
            std::ranges::find(constraints->validSwFormats, format) == constraints->validSwFormats.end())
            ThrowUnsupported(fmt::format("{} takes no {} pictures, but {}", type, NamesOf({format}),
                                         NamesOf(constraints->validSwFormats)));
        place->second = device.AllocFramesContextBuffer({picture.width, picture.height},
                                                        Proc::PixelFormatQuorvaFromFFMPEGSafe(format), 0);
        place->second.InitFramesContext();
        return place->second;
    } catch (...) {
        pools.erase(place);
        throw;
    }
}

Proc::SafeFrame HardwareRoundTrip::operator()(const AVFrame& picture)
{
    const Proc::SafeFrame uploaded = PoolFor(picture).AllocFrame(Conf::ColorSpace());
    if (const int result = av_hwframe_transfer_data(uploaded.get(), &picture, 0); result < 0)
        ThrowFFmpegFailure(fmt::format("a picture can't be sent to {}", type), result);
    Proc::SafeFrame back;
    if (const int result = av_hwframe_transfer_data(back.get(), uploaded.get(), 0); result < 0)
        ThrowFFmpegFailure(fmt::format("a picture can't be fetched from {}", type), result);
    if (const int result = av_frame_copy_props(back.get(), &picture); result < 0)
        ThrowFFmpegFailure("a picture can't be described", result);
    return back;
}

}  // namespace Quorva::Tool
